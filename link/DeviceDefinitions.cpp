#include "link/DeviceDefinitions.h"

#include "link/DeviceDefinitionSource.h"

#include <QCborArray>
#include <QCborMap>
#include <QCborValue>
#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QtEndian>

const char DeviceDefinitions::kMagic[9] = "VXDEVDEF";

namespace {
QJsonArray toJson(const QVector<DeviceDefinition> &devices)
{
    QJsonArray list;
    for (const DeviceDefinition &d : devices)
        list.append(DeviceDefinitionSource::write(d));
    return list;
}
} // namespace

bool DeviceParameter::operator==(const DeviceParameter &o) const
{
    return id == o.id && address == o.address && size == o.size && isSigned == o.isSigned &&
           decimals == o.decimals && min == o.min && max == o.max && defaultValue == o.defaultValue &&
           readOnly == o.readOnly && name == o.name && description == o.description && choices == o.choices;
}

const DeviceParameter *DeviceDefinition::parameter(int id) const
{
    for (const DeviceParameter &p : parameters) {
        if (p.id == id)
            return &p;
    }
    return nullptr;
}

const DevicePage *DeviceDefinition::page(int id) const
{
    for (const DevicePage &p : pages) {
        if (p.id == id)
            return &p;
    }
    return nullptr;
}

const DeviceCommand *DeviceDefinition::command(int id) const
{
    for (const DeviceCommand &c : commands) {
        if (c.id == id)
            return &c;
    }
    return nullptr;
}

QStringList DeviceDefinition::expressions() const
{
    QStringList list;
    for (const DevicePage &p : pages) {
        for (const DevicePageElement &e : p.elements) {
            const QVariant visible = e.properties.value(QStringLiteral("visible"));
            if (visible.type() == QVariant::String)
                list << visible.toString();
            if (e.properties.value(QStringLiteral("pDynamic")).toInt() != 0 ||
                e.kind == QLatin1String("Channel"))
                list << e.properties.value(QStringLiteral("pText")).toString();
        }
    }
    return list;
}

bool DeviceDefinition::operator==(const DeviceDefinition &o) const
{
    return name == o.name && hardware == o.hardware && firmwareMajor == o.firmwareMajor &&
           firmwareMinor == o.firmwareMinor && parameters == o.parameters && pages == o.pages &&
           commands == o.commands;
}

const QStringList &DeviceDefinitions::propertyNames()
{
    static const QStringList names = {
        QStringLiteral("pFont"),     QStringLiteral("pWidth"),      QStringLiteral("pHeight"),
        QStringLiteral("pReadOnly"), QStringLiteral("pMeaning"),    QStringLiteral("pGroup"),
        QStringLiteral("pText"),     QStringLiteral("visible"),     QStringLiteral("enabled"),
        QStringLiteral("pFormat"),   QStringLiteral("pMin"),        QStringLiteral("pMax"),
        QStringLiteral("pDecimals"), QStringLiteral("pParam"),      QStringLiteral("pValues"),
        QStringLiteral("pAlign"),    QStringLiteral("pExt"),        QStringLiteral("pAlignRight"),
        QStringLiteral("pDynamic"),  QStringLiteral("pValueId"),    QStringLiteral("pProportional"),
        QStringLiteral("pValue"),    QStringLiteral("pFloatValue"), QStringLiteral("pItems"),
        QStringLiteral("pBitNo"),    QStringLiteral("pCommand"),    QStringLiteral("pPage"),
        QStringLiteral("pWizard"),   QStringLiteral("pAllowHour"),  QStringLiteral("pWizardMode"),
        QStringLiteral("pFile"),     QStringLiteral("pKeyValues")};
    return names;
}

const QStringList &DeviceDefinitions::elementKinds()
{
    static const QStringList kinds = {
        QStringLiteral("Row"),     QStringLiteral("Label"),  QStringLiteral("Link"),
        QStringLiteral("Command"), QStringLiteral("Int"),    QStringLiteral("Select"),
        QStringLiteral("Channel"), QStringLiteral("Date"),   QStringLiteral("Time"),
        QStringLiteral("Chart"),   QStringLiteral("Bitmap"), QStringLiteral("Button")};
    return kinds;
}

const DeviceDefinition *DeviceDefinitions::find(quint16 hardware) const
{
    for (const DeviceDefinition &d : m_devices) {
        if (d.hardware.contains(hardware))
            return &d;
    }
    return nullptr;
}

bool DeviceDefinitions::addSource(const QByteArray &json, const QString &fileName, QString *error)
{
    const auto failed = [&](const QString &reason) {
        *error = QStringLiteral("%1: %2").arg(fileName, reason);
        return false;
    };
    int line = 0;
    const QString twice = DeviceDefinitionSource::duplicateKey(json, &line);
    if (!twice.isEmpty())
        return failed(QStringLiteral("line %1: \"%2\" is given twice").arg(QString::number(line), twice));
    QJsonParseError parseError;
    const QJsonDocument doc = QJsonDocument::fromJson(json, &parseError);
    if (parseError.error != QJsonParseError::NoError)
        return failed(QStringLiteral("line %1: %2")
                          .arg(json.left(parseError.offset).count('\n') + 1)
                          .arg(parseError.errorString()));
    QJsonArray list;
    if (doc.isObject())
        list.append(doc.object());
    else
        list = doc.array();
    if (list.isEmpty())
        return failed(QStringLiteral("holds no device"));
    // All of the file or nothing of it.
    QVector<DeviceDefinition> devices = m_devices;
    QStringList sources = m_sources;
    QHash<quint16, int> owners; // hardware value -> device
    for (int i = 0; i < devices.size(); ++i) {
        for (const quint16 hw : devices.at(i).hardware)
            owners.insert(hw, i);
    }
    for (const QJsonValue &v : qAsConst(list)) {
        DeviceDefinition d;
        if (!v.isObject())
            return failed(QStringLiteral("a device must be an object"));
        if (!DeviceDefinitionSource::read(v.toObject(), fileName, &d, error))
            return false;
        // Lookup goes by hardware value: two definitions for one would make it a matter of order.
        for (const quint16 hw : qAsConst(d.hardware)) {
            const int owner = owners.value(hw, -1);
            if (owner >= 0)
                return failed(QStringLiteral("device \"%1\": hardware %2 is already defined by \"%3\" in %4")
                                  .arg(d.name, DeviceDefinitionSource::hexText(hw, 4), devices.at(owner).name,
                                       sources.at(owner)));
            owners.insert(hw, devices.size());
        }
        devices.append(d);
        sources.append(fileName);
    }
    m_devices = devices;
    m_sources = sources;
    return true;
}

bool DeviceDefinitions::addSourceFile(const QString &path, QString *error)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        *error = QStringLiteral("%1: %2").arg(path, file.errorString());
        return false;
    }
    if (file.size() > kMaxPayload) {
        *error = QStringLiteral("%1: larger than %2 bytes").arg(path).arg(kMaxPayload);
        return false;
    }
    return addSource(file.readAll(), path, error);
}

QByteArray DeviceDefinitions::toContainer() const
{
    QCborMap root;
    root.insert(QStringLiteral("devices"), QCborValue::fromJsonValue(toJson(m_devices)));
    const QByteArray payload = QCborValue(root).toCbor();
    QByteArray out(kMagic, 8);
    char word[4];
    qToBigEndian(kFormatVersion, word);
    out.append(word, 4);
    qToBigEndian(quint32(payload.size()), word);
    out.append(word, 4);
    out.append(QCryptographicHash::hash(payload, QCryptographicHash::Sha256));
    out.append(payload);
    return out;
}

QByteArray DeviceDefinitions::toSourceText() const
{
    return QJsonDocument(toJson(m_devices)).toJson(QJsonDocument::Indented);
}

QString DeviceDefinitions::loadErrorMessage(const QString &reason)
{
    // One line, whatever names a damaged file carries.
    QString line = reason;
    for (QChar &c : line) {
        if (c.unicode() < 0x20 || c.unicode() == 0x7F || c == QChar::LineSeparator ||
            c == QChar::ParagraphSeparator)
            c = QLatin1Char(' ');
    }
    return tr("Error loading device configuration file: %1").arg(line);
}

bool DeviceDefinitions::readContainer(const QByteArray &bytes, QString *error)
{
    const QString reason = containerFault(bytes);
    if (!reason.isEmpty())
        *error = loadErrorMessage(reason);
    return reason.isEmpty();
}

bool DeviceDefinitions::readPayload(const QByteArray &cbor, QString *error)
{
    const QString reason = payloadFault(cbor);
    if (!reason.isEmpty())
        *error = loadErrorMessage(reason);
    return reason.isEmpty();
}

bool DeviceDefinitions::load(const QString &path, QString *error)
{
    QFile file(path);
    QString reason;
    if (!file.open(QIODevice::ReadOnly))
        reason = file.errorString();
    else if (file.size() > kHeaderSize + kMaxPayload) // the cap comes first: nothing larger is read
        reason = tr("%1 bytes exceed the limit of %2 bytes").arg(file.size()).arg(kHeaderSize + kMaxPayload);
    else
        reason = containerFault(file.readAll());
    if (!reason.isEmpty())
        *error = loadErrorMessage(QStringLiteral("%1: %2").arg(QDir::toNativeSeparators(path), reason));
    return reason.isEmpty();
}

QString DeviceDefinitions::containerFault(const QByteArray &bytes)
{
    if (bytes.isEmpty())
        return tr("the file is empty");
    if (bytes.size() < 8 || !bytes.startsWith(QByteArray(kMagic, 8)))
        return tr("not a device definitions file");
    if (bytes.size() < kHeaderSize)
        return tr("the file is truncated (%1 bytes, the header alone takes %2)")
            .arg(bytes.size())
            .arg(kHeaderSize);
    const auto *header = reinterpret_cast<const uchar *>(bytes.constData());
    const quint32 version = qFromBigEndian<quint32>(header + 8);
    const quint32 length = qFromBigEndian<quint32>(header + 12);
    if (version != kFormatVersion)
        return tr("format version %1, this program reads version %2").arg(version).arg(kFormatVersion);
    if (length > kMaxPayload)
        return tr("its payload of %1 bytes exceeds the limit of %2 bytes").arg(length).arg(kMaxPayload);
    const qint64 expected = kHeaderSize + qint64(length);
    if (bytes.size() < expected)
        return tr("the file is truncated (%1 of %2 bytes)").arg(bytes.size()).arg(expected);
    if (bytes.size() > expected)
        return tr("%1 unexpected bytes after the payload").arg(bytes.size() - expected);
    const QByteArray payload = bytes.mid(kHeaderSize);
    if (QCryptographicHash::hash(payload, QCryptographicHash::Sha256) != bytes.mid(16, 32))
        return tr("checksum mismatch: the file is damaged");
    return payloadFault(payload);
}

QString DeviceDefinitions::payloadFault(const QByteArray &cbor)
{
    QCborParserError parseError;
    const QCborValue root = QCborValue::fromCbor(cbor, &parseError);
    if (parseError.error != QCborError::NoError)
        return tr("damaged payload: %1").arg(parseError.errorString());
    const QCborValue devices = root.toMap().value(QStringLiteral("devices"));
    if (!root.isMap() || !devices.isArray())
        return tr("damaged payload: no device list");
    DeviceDefinitions read;
    QString reason;
    // The same checks as a source file: only complete, consistent definitions come in.
    if (!read.addSource(QJsonDocument(devices.toArray().toJsonArray()).toJson(QJsonDocument::Compact),
                        QStringLiteral("payload"), &reason))
        return tr("damaged payload: %1").arg(reason);
    m_devices = read.m_devices;
    m_sources = read.m_sources;
    return QString();
}

QStringList DeviceDefinitions::searchPaths(const QString &appDir)
{
    const QDir dir(appDir);
    return {QDir::cleanPath(dir.filePath(QStringLiteral("Devices/Devices.bin"))),
            QDir::cleanPath(dir.filePath(QStringLiteral("../share/vexo-studio/Devices/Devices.bin")))};
}

QString DeviceDefinitions::locate(const QString &appDir)
{
    for (const QString &path : searchPaths(appDir)) {
        if (QFileInfo(path).isFile())
            return path;
    }
    return QString();
}
