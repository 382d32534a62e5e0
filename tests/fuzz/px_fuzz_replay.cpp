// Runs a fuzz target over saved inputs without libFuzzer, so that every
// build replays the cases in tests/data/fuzz: px_replay_<target> DIRECTORY...

#include <QDir>
#include <QFile>

#include <cstdint>
#include <cstdio>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size);

int main(int argc, char** argv)
{
    int replayed = 0;
    for (int i = 1; i < argc; ++i) {
        const QDir directory(QString::fromLocal8Bit(argv[i]));
        for (const QFileInfo& entry : directory.entryInfoList(QDir::Files, QDir::Name)) {
            QFile file(entry.filePath());
            if (!file.open(QIODevice::ReadOnly))
                return 1;
            const QByteArray bytes = file.readAll();
            LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.constData()), std::size_t(bytes.size()));
            ++replayed;
        }
    }
    std::printf("replayed %d inputs\n", replayed);
    return replayed > 0 ? 0 : 1;
}
