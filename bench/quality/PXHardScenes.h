#pragma once

// The hard cases: objects made from photos Debian ships (a horse silhouette,
// a cat's fur, grey textures), pasted with a known alpha on photos, each with
// a lasso drawn as a hand draws it.

#include "PXQualityScenes.h"

#include <QList>
#include <QString>

#include <functional>

/** A hard case, made on demand: the large ones take a while. */
struct PXHardCaseRecipe {
    QString name;
    bool large = false;
    std::function<PXQualityCase()> make;
};

/**
 * Camouflage, thin legs, a defocused edge, a ring, two objects, a freehand
 * lasso that cuts in, fur (1200 x 800 each) and a 12-megapixel horse.
 */
QList<PXHardCaseRecipe> hardCases();
