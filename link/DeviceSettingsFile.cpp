#include "link/DeviceSettingsFile.h"

#include "link/DeviceDefinitions.h"
#include "telemetry/AtomicFile.h"

#include <QFile>
#include <QHash>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QSet>

#include <cmath>

const char DeviceSettingsFile::kFormat[] = "vexo-device-settings";

namespace {

double scaleOf(int decimals)
{
    return std::pow(10.0, decimals);
}

QString numberText(qint64 raw, int decimals)
{
    return QString::number(double(raw) / scaleOf(decimals), 'f', decimals);
}

// A JSON number that is an integer within [low, high]; JSON keeps numbers as doubles.
bool integerIn(const QJsonValue &v, double low, double high, qint64 *out)
{
    if (!v.isDouble())
        return false;
    const double d = v.toDouble();
    if (!std::isfinite(d) || d != std::floor(d) || d < low || d > high)
        return false;
    *out = qint64(d);
    return true;
}

const DeviceParameter *definitionParameter(const DeviceDefinition &definition, int id, quint16 address)
{
    const DeviceParameter *p = definition.parameter(id);
    if (p)
        return p;
    // Raw registers carry no id: their address names them.
    if (id == 0) {
        for (const DeviceParameter &d : definition.parameters) {
            if (d.address == address)
                return &d;
        }
    }
    return nullptr;
}

} // namespace

qint64 DeviceSettingsFile::rawFromShown(double value, int decimals)
{
    constexpr double kLimit = 4e18; // well inside qint64
    const double scaled = value * scaleOf(decimals);
    if (std::isnan(scaled))
        return 0;
    if (scaled >= kLimit || scaled <= -kLimit)
        return scaled > 0 ? qint64(kLimit) : -qint64(kLimit);
    return std::llround(scaled);
}

qint64 DeviceSettingsFile::rawOf(const DevParam &param)
{
    if (!param.isSigned && param.width == 4)
        return qint64(quint32(param.value));
    return param.value;
}

QString DeviceSettingsFile::valueText(const DeviceParameter &parameter, qint64 raw)
{
    for (const auto &choice : parameter.choices) {
        if (choice.first == raw)
            return choice.second;
    }
    return numberText(raw, parameter.decimals);
}

DeviceSettingsFile DeviceSettingsFile::build(const Device &device, const DeviceDefinition &definition,
                                             const DevParamVector &params)
{
    DeviceSettingsFile file;
    file.deviceName = device.name;
    file.identifier = device.identifier;
    file.hardware = device.hardware;
    file.firmwareMajor = device.firmwareMajor();
    file.firmwareMinor = device.firmwareMinor();
    for (const DevParam &p : params) {
        if (!p.loaded)
            continue;
        Entry e;
        e.id = p.id;
        e.address = p.address;
        e.decimals = p.decimals;
        e.raw = rawOf(p);
        e.value = double(e.raw) / scaleOf(p.decimals);
        if (const DeviceParameter *d = definitionParameter(definition, p.id, p.address))
            e.name = d->name;
        file.parameters.append(e);
    }
    return file;
}

QByteArray DeviceSettingsFile::toJson() const
{
    QJsonObject device{{"name", deviceName},
                       {"identifier", QString::number(identifier, 16).toUpper()},
                       {"hardware", int(hardware)},
                       {"firmware", QStringLiteral("%1.%2").arg(firmwareMajor).arg(firmwareMinor)}};
    QJsonArray list;
    for (const Entry &e : parameters) {
        list.append(QJsonObject{{"id", e.id},
                                {"name", e.name},
                                {"address", int(e.address)},
                                {"decimals", e.decimals},
                                {"value", e.value},
                                {"raw", double(e.raw)}});
    }
    const QJsonObject root{
        {"format", QLatin1String(kFormat)}, {"version", kVersion}, {"device", device}, {"parameters", list}};
    return QJsonDocument(root).toJson(QJsonDocument::Indented);
}

bool DeviceSettingsFile::fromJson(const QByteArray &json, DeviceSettingsFile *out, QString *error)
{
    auto fail = [error](const QString &why) {
        if (error)
            *error = why;
        return false;
    };
    QJsonParseError parseError;
    const QJsonDocument doc = QJsonDocument::fromJson(json, &parseError);
    if (parseError.error != QJsonParseError::NoError)
        return fail(
            tr("not a JSON document (%1 at byte %2)").arg(parseError.errorString()).arg(parseError.offset));
    if (!doc.isObject())
        return fail(tr("not a device settings file (no JSON object)"));
    const QJsonObject root = doc.object();
    if (root.value("format").toString() != QLatin1String(kFormat))
        return fail(tr("not a device settings file (\"format\" is not \"%1\")").arg(QLatin1String(kFormat)));
    qint64 version = 0;
    if (!integerIn(root.value("version"), 1, 1e9, &version))
        return fail(tr("\"version\" is missing or not a positive whole number"));
    if (version > kVersion)
        return fail(tr("the file was written by a newer program (version %1; this one reads %2)")
                        .arg(version)
                        .arg(kVersion));

    DeviceSettingsFile file;
    const QJsonValue deviceValue = root.value("device");
    if (!deviceValue.isObject())
        return fail(tr("\"device\" is missing or not an object"));
    const QJsonObject device = deviceValue.toObject();
    if (!device.value("name").isString())
        return fail(tr("\"device\": \"name\" is missing or not text"));
    file.deviceName = device.value("name").toString();
    static const QRegularExpression hex(QStringLiteral("^[0-9A-Fa-f]{1,8}$"));
    const QString id = device.value("identifier").toString();
    if (!hex.match(id).hasMatch())
        return fail(tr("\"device\": \"identifier\" is not hexadecimal text of up to 8 digits"));
    file.identifier = id.toUInt(nullptr, 16);
    qint64 number = 0;
    if (!integerIn(device.value("hardware"), 0, 0xFFFF, &number))
        return fail(tr("\"device\": \"hardware\" is not a whole number from 0 to 65535"));
    file.hardware = quint16(number);
    static const QRegularExpression firmware(QStringLiteral("^(\\d{1,3})\\.(\\d{1,3})$"));
    const QRegularExpressionMatch fw = firmware.match(device.value("firmware").toString());
    if (!fw.hasMatch() || fw.captured(1).toInt() > 255 || fw.captured(2).toInt() > 255)
        return fail(tr("\"device\": \"firmware\" is not a version like \"1.2\""));
    file.firmwareMajor = fw.captured(1).toInt();
    file.firmwareMinor = fw.captured(2).toInt();

    const QJsonValue listValue = root.value("parameters");
    if (!listValue.isArray())
        return fail(tr("\"parameters\" is missing or not a list"));
    const QJsonArray list = listValue.toArray();
    QSet<int> keys;
    for (int i = 0; i < list.size(); ++i) {
        const QString where = tr("parameter %1").arg(i + 1);
        if (!list.at(i).isObject())
            return fail(tr("%1: not an object").arg(where));
        const QJsonObject o = list.at(i).toObject();
        Entry e;
        if (!integerIn(o.value("id"), 0, 0xFFFF, &number))
            return fail(tr("%1: \"id\" is not a whole number from 0 to 65535").arg(where));
        e.id = int(number);
        if (!integerIn(o.value("address"), 0, 0xFFFF, &number))
            return fail(tr("%1: \"address\" is not a whole number from 0 to 65535").arg(where));
        e.address = quint16(number);
        // Raw registers (id 0) are told apart by their address.
        const int key = e.id != 0 ? e.id : -1 - int(e.address);
        if (keys.contains(key))
            return fail(e.id != 0 ? tr("%1: id %2 appears twice").arg(where).arg(e.id)
                                  : tr("%1: address %2 appears twice").arg(where).arg(e.address));
        keys.insert(key);
        if (o.contains("name") && !o.value("name").isString())
            return fail(tr("%1: \"name\" is not text").arg(where));
        e.name = o.value("name").toString();
        if (o.contains("decimals")) {
            if (!integerIn(o.value("decimals"), 0, 9, &number))
                return fail(tr("%1: \"decimals\" is not a whole number from 0 to 9").arg(where));
            e.decimals = int(number);
        }
        const QJsonValue value = o.value("value");
        if (!value.isDouble() || !std::isfinite(value.toDouble()) || std::fabs(value.toDouble()) > 1e12)
            return fail(tr("%1: \"value\" is missing or not a number").arg(where));
        e.value = value.toDouble();
        const double scale = scaleOf(e.decimals);
        if (o.contains("raw")) {
            if (!integerIn(o.value("raw"), -2147483648.0, 4294967295.0, &e.raw))
                return fail(tr("%1: \"raw\" is not a whole 32-bit number").arg(where));
            if (std::fabs(double(e.raw) / scale - e.value) > 0.5 / scale)
                return fail(
                    tr("%1: \"value\" %2 and \"raw\" %3 disagree").arg(where).arg(e.value).arg(e.raw));
        } else {
            e.raw = rawFromShown(e.value, e.decimals);
            if (e.raw < -2147483648LL || e.raw > 4294967295LL)
                return fail(tr("%1: \"value\" %2 does not fit a 32-bit register").arg(where).arg(e.value));
        }
        file.parameters.append(e);
    }
    *out = file;
    return true;
}

bool DeviceSettingsFile::save(const QString &path, QString *error) const
{
    return AtomicFile::write(path, toJson(), error);
}

bool DeviceSettingsFile::load(const QString &path, DeviceSettingsFile *out, QString *error)
{
    QFile f(path);
    if (!f.open(QIODevice::ReadOnly)) {
        if (error)
            *error = tr("%1: %2").arg(path, f.errorString());
        return false;
    }
    // Read one byte past the cap: a file growing while it is read is caught too.
    const QByteArray bytes = f.read(kMaxBytes + 1);
    if (bytes.size() > kMaxBytes) {
        if (error)
            *error = tr("%1: larger than %2 MB, not a device settings file").arg(path).arg(kMaxBytes >> 20);
        return false;
    }
    QString why;
    if (!fromJson(bytes, out, &why)) {
        if (error)
            *error = tr("%1: %2").arg(path, why);
        return false;
    }
    return true;
}

bool DeviceSettingsFile::diff(const DeviceDefinition &definition, const DevParamVector &device,
                              const DeviceSettingsFile &file, QVector<DiffRow> *rows, QString *error)
{
    if (!definition.hardware.contains(file.hardware)) {
        if (error)
            *error =
                tr("This file holds settings of \"%1\", not of \"%2\".")
                    .arg(file.deviceName.isEmpty() ? tr("hardware %1").arg(file.hardware) : file.deviceName,
                         definition.name);
        return false;
    }
    auto key = [](int id, quint16 address) { return id != 0 ? id : -1 - int(address); };
    QHash<int, int> inFile;
    for (int i = 0; i < file.parameters.size(); ++i)
        inFile.insert(key(file.parameters.at(i).id, file.parameters.at(i).address), i);

    QVector<DiffRow> out;
    QSet<int> matched;
    for (const DevParam &p : device) {
        const DeviceParameter *d = definitionParameter(definition, p.id, p.address);
        DiffRow row;
        row.id = p.id;
        row.address = p.address;
        row.name = d ? d->name : QString();
        if (p.loaded)
            row.deviceText = d ? valueText(*d, rawOf(p)) : numberText(rawOf(p), p.decimals);
        const int k = key(p.id, p.address);
        const auto found = inFile.constFind(k);
        if (found == inFile.constEnd()) {
            row.side = DiffRow::OnlyOnDevice;
            out.append(row);
            continue;
        }
        matched.insert(k);
        const Entry &e = file.parameters.at(found.value());
        if (row.name.isEmpty())
            row.name = e.name;
        // The definition's decimals decide what the file's number means for the device now.
        row.fileRaw = rawFromShown(e.value, p.decimals);
        row.fileText = d ? valueText(*d, row.fileRaw) : numberText(row.fileRaw, p.decimals);
        row.differs = !p.loaded || row.fileRaw != rawOf(p);
        row.refusal = p.refusal(row.fileRaw);
        row.writable = row.refusal.isEmpty();
        out.append(row);
    }
    for (const Entry &e : file.parameters) {
        if (matched.contains(key(e.id, e.address)))
            continue;
        DiffRow row;
        row.id = e.id;
        row.address = e.address;
        row.name = e.name;
        row.side = DiffRow::OnlyInFile;
        row.fileRaw = rawFromShown(e.value, e.decimals);
        row.fileText = numberText(row.fileRaw, e.decimals);
        row.differs = true;
        row.refusal = tr("this device has no such parameter");
        out.append(row);
    }
    *rows = out;
    return true;
}

DevParamVector DeviceSettingsFile::toWrite(const QVector<DiffRow> &rows, const DevParamVector &device)
{
    DevParamVector out;
    for (const DiffRow &row : rows) {
        if (!row.writable || row.side != DiffRow::Both)
            continue;
        for (const DevParam &p : device) {
            if (p.address == row.address && p.id == row.id) {
                DevParam w = p;
                w.value = qint32(row.fileRaw);
                w.sent = w.value;
                out.append(w);
                break;
            }
        }
    }
    return out;
}
