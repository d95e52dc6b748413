// Device settings files from arbitrary bytes: nothing crashes, whatever is accepted reads back the same
// after being written, and comparing it with a device never fails for a file of that device's kind.
#include "link/DeviceDefinitions.h"
#include "link/DeviceSettingsFile.h"

#include <cstdint>
#include <cstdlib>

namespace {
const DeviceDefinition &definition()
{
    static const DeviceDefinition d = [] {
        DeviceDefinition def;
        def.name = QStringLiteral("Test");
        def.hardware = {0x0203};
        for (int i = 0; i < 4; ++i) {
            DeviceParameter p;
            p.id = 10 + i;
            p.address = quint16(0x18 + 2 * i);
            p.size = 2;
            p.isSigned = i == 1;
            p.decimals = i;
            p.min = p.isSigned ? -1000 : 0;
            p.max = 1000;
            p.name = QStringLiteral("P%1").arg(i);
            def.parameters.append(p);
        }
        return def;
    }();
    return d;
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray bytes = QByteArray::fromRawData(reinterpret_cast<const char *>(data), int(size));
    DeviceSettingsFile file;
    QString error;
    if (!DeviceSettingsFile::fromJson(bytes, &file, &error)) {
        if (error.isEmpty())
            std::abort();
        return 0;
    }
    DeviceSettingsFile again;
    if (!DeviceSettingsFile::fromJson(file.toJson(), &again, &error) ||
        again.parameters.size() != file.parameters.size() || again.hardware != file.hardware)
        std::abort();
    for (int i = 0; i < file.parameters.size(); ++i) {
        if (again.parameters.at(i).id != file.parameters.at(i).id ||
            again.parameters.at(i).raw != file.parameters.at(i).raw)
            std::abort();
    }
    DeviceSettings device = DeviceSettings::fromDefinition(1, definition());
    for (DevParam &p : device.params)
        p.loaded = true;
    file.hardware = 0x0203;
    QVector<DeviceSettingsFile::DiffRow> rows;
    if (!DeviceSettingsFile::diff(definition(), device.params, file, &rows, &error))
        std::abort();
    DeviceSettingsFile::toWrite(rows, device.params);
    return 0;
}
