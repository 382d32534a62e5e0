#pragma once

#include <QString>

/**
 * One setting: its key, its default value and its current value (which
 * starts as the default). PXSettings::load() and save() move the current
 * value to and from the store. Plain value type; not thread-safe on its own.
 */
template <typename T>
class PXConfigItem
{
public:
    PXConfigItem(const QString& key, const T& defaultValue)
        : m_key(key)
        , m_defaultValue(defaultValue)
        , m_value(defaultValue)
    {
    }

    const QString& key() const { return m_key; }
    const T& defaultValue() const { return m_defaultValue; }
    const T& value() const { return m_value; }
    void setValue(const T& value) { m_value = value; }

private:
    QString m_key;
    T m_defaultValue;
    T m_value;
};
