// Runs a fuzz target over every file of its seed folders, so the seeds (and any crash once found and
// added there) are checked in every normal test run.
#include <QDir>
#include <QFile>

#include <cstdint>
#include <cstdio>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

int main(int argc, char *argv[])
{
    if (argc < 2) {
        std::fprintf(stderr, "usage: %s SEED_DIR...\n", argv[0]);
        return 2;
    }
    int count = 0;
    for (int i = 1; i < argc; ++i) {
        const QDir dir(QString::fromLocal8Bit(argv[i]));
        const QStringList files = dir.entryList(QDir::Files, QDir::Name);
        if (files.isEmpty()) {
            std::fprintf(stderr, "%s: no seeds in %s\n", argv[0], argv[i]);
            return 1;
        }
        for (const QString &name : files) {
            QFile f(dir.filePath(name));
            if (!f.open(QIODevice::ReadOnly)) {
                std::fprintf(stderr, "cannot read %s\n", qPrintable(f.fileName()));
                return 1;
            }
            const QByteArray bytes = f.readAll();
            LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t *>(bytes.constData()),
                                   size_t(bytes.size()));
            ++count;
        }
    }
    std::printf("%d passed, 0 failed\n", count);
    return 0;
}
