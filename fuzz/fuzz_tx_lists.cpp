// The transmitter lists ("update.json" and "apps.json") on arbitrary bytes: nothing crashes, every file
// carries one of the five flag values and a size that is unknown or not negative, and every update's files
// are the ones the list tied to it.
#include "transmitter/TxCatalogue.h"

#include <cstdint>
#include <cstdlib>

namespace {

void checkFiles(const QVector<TxCatalogue::FileEntry> &files)
{
    for (const TxCatalogue::FileEntry &file : files) {
        const int flag = static_cast<int>(file.flags);
        if (flag < 0 || flag > 4 || file.size < -1 || file.url.isEmpty())
            std::abort();
        // The word a flag is stored under reads back as the same flag.
        if (TxCatalogue::flagFromString(TxCatalogue::flagWord(file.flags)) != file.flags)
            std::abort();
        file.isLuaProgram();
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    // An unknown flag word is logged for every file; the fuzzer needs no log.
    static const QtMessageHandler quiet =
        qInstallMessageHandler([](QtMsgType, const QMessageLogContext &, const QString &) {});
    Q_UNUSED(quiet)
    const QByteArray bytes = QByteArray::fromRawData(reinterpret_cast<const char *>(data), int(size));

    TxCatalogue::UpdateList list;
    if (TxCatalogue::parseUpdateList(bytes, &list)) {
        for (auto it = list.byHardware.cbegin(); it != list.byHardware.cend(); ++it) {
            if (it.value().isEmpty())
                std::abort();
            for (const TxCatalogue::Update &update : it.value()) {
                checkFiles(update.files);
                TxCatalogue::shortDate(update.releaseDate.date());
            }
        }
    } else if (!list.byHardware.isEmpty()) {
        std::abort();
    }

    QVector<TxCatalogue::App> apps;
    if (TxCatalogue::parseAppList(bytes, &apps)) {
        for (const TxCatalogue::App &app : apps) {
            checkFiles(app.files);
            for (int i = 0; i < app.hw.size(); ++i) {
                if (app.hw.indexOf(app.hw.at(i)) != i)
                    std::abort();
            }
        }
    } else if (!apps.isEmpty()) {
        std::abort();
    }
    return 0;
}
