// Runs a fuzz target over saved inputs without libFuzzer, so that every
// compiler and sanitizer build replays the cases in tests/data/fuzz:
//   px_replay_<target> FILE|DIRECTORY...

#include <QDir>
#include <QFile>

#include <cstdint>
#include <cstdio>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size);

int main(int argc, char** argv)
{
    int replayed = 0;
    for (int i = 1; i < argc; ++i) {
        QStringList files {QString::fromLocal8Bit(argv[i])};
        const QDir directory(files.first());
        if (directory.exists()) {
            files.clear();
            for (const QString& name : directory.entryList(QDir::Files, QDir::Name))
                files << directory.filePath(name);
        }
        for (const QString& name : std::as_const(files)) {
            QFile file(name);
            if (!file.open(QIODevice::ReadOnly)) {
                std::fprintf(stderr, "cannot read %s\n", qPrintable(name));
                return 1;
            }
            const QByteArray bytes = file.readAll();
            LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.constData()), std::size_t(bytes.size()));
            ++replayed;
        }
    }
    std::printf("replayed %d inputs\n", replayed);
    return replayed > 0 ? 0 : 1;
}
