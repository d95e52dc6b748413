// Device definitions from arbitrary bytes, read as a definitions file, as its payload alone (past the
// checksum a fuzzer cannot forge) and as a source file: nothing crashes, a refusal says why in one line,
// and whatever is accepted survives being written and read again unchanged.
#include "link/DeviceDefinitions.h"

#include <cstdint>
#include <cstdlib>

namespace {
void roundTrip(const DeviceDefinitions &accepted)
{
    DeviceDefinitions again;
    QString error;
    if (!again.readContainer(accepted.toContainer(), &error) || again.devices() != accepted.devices())
        std::abort();
}

void refusal(const QString &error)
{
    if (!error.startsWith(DeviceDefinitions::loadErrorMessage(QString())) ||
        error.contains(QLatin1Char('\n')))
        std::abort();
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static const QtMessageHandler quiet =
        qInstallMessageHandler([](QtMsgType, const QMessageLogContext &, const QString &) {});
    Q_UNUSED(quiet);
    const QByteArray bytes = QByteArray::fromRawData(reinterpret_cast<const char *>(data), int(size));
    QString error;

    DeviceDefinitions container;
    if (container.readContainer(bytes, &error))
        roundTrip(container);
    else
        refusal(error);

    DeviceDefinitions payload;
    if (payload.readPayload(bytes, &error))
        roundTrip(payload);
    else
        refusal(error);

    DeviceDefinitions source;
    error.clear();
    if (source.addSource(bytes, QStringLiteral("fuzz.json"), &error))
        roundTrip(source);
    else if (!error.startsWith(QLatin1String("fuzz.json: ")))
        std::abort();
    return 0;
}
