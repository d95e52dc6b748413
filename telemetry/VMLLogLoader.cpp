#include "telemetry/VMLLogLoader.h"

#include <QDomDocument>
#include <QIODevice>
#include <QXmlStreamReader>

#include <algorithm>
#include <vector>

namespace {
constexpr qint64 kChunkSize = 1 << 20;
// Progress: the first half is reading, the second applying the document.
constexpr int kProgressEvery = 4096;

// "dataStorage" and "vml:dataStorage" alike: elements are matched by their name without a prefix.
bool isTag(const QDomElement &e, QLatin1String name)
{
    const QString tag = e.tagName();
    const int colon = tag.indexOf(QLatin1Char(':'));
    return colon < 0 ? tag == name : tag.midRef(colon + 1) == name;
}

struct Storage
{
    QDomElement element;
    std::vector<QDomElement> descriptions;
    std::vector<QDomElement> entities;
};

// Every storage in document order with the descriptions and entities that belong to it (those whose
// nearest storage ancestor it is). The walk keeps its own stack: the depth is bounded, but not by much.
std::vector<Storage> collectStorages(const QDomElement &root)
{
    std::vector<Storage> storages;
    std::vector<std::pair<QDomElement, int>> stack;
    stack.emplace_back(root, -1);
    std::vector<QDomElement> children;
    while (!stack.empty()) {
        const QDomElement e = stack.back().first;
        int owner = stack.back().second;
        stack.pop_back();
        if (isTag(e, QLatin1String("dataStorage"))) {
            owner = int(storages.size());
            storages.push_back({e, {}, {}});
        } else if (owner >= 0 && isTag(e, QLatin1String("attrDescription"))) {
            storages[size_t(owner)].descriptions.push_back(e);
        } else if (owner >= 0 && isTag(e, QLatin1String("entity"))) {
            storages[size_t(owner)].entities.push_back(e);
        }
        children.clear();
        for (QDomElement c = e.firstChildElement(); !c.isNull(); c = c.nextSiblingElement())
            children.push_back(c);
        for (auto it = children.rbegin(); it != children.rend(); ++it)
            stack.emplace_back(*it, owner);
    }
    return storages;
}

QString deviceIdField(quint32 id)
{
    return QStringLiteral("%1%2")
        .arg(id & 0xFFFF, 5, 10, QLatin1Char('0'))
        .arg(id >> 16, 5, 10, QLatin1Char('0'));
}
} // namespace

VMLLogLoader::VMLLogLoader(SensorTable *sensors) : LogFileLoader(sensors) {}

bool VMLLogLoader::screen(const QByteArray &xml, QString *error)
{
    const auto fail = [error](const QString &reason) {
        if (error)
            *error = reason;
        return false;
    };
    QXmlStreamReader reader(xml);
    int depth = 0;
    while (!reader.atEnd()) {
        switch (reader.readNext()) {
        case QXmlStreamReader::StartElement:
            if (++depth > kMaxDepth)
                return fail(tr("Elements are nested more than %1 levels deep (line %2)")
                                .arg(kMaxDepth)
                                .arg(reader.lineNumber()));
            break;
        case QXmlStreamReader::EndElement:
            --depth;
            break;
        case QXmlStreamReader::DTD:
            // Entities are how a few kilobytes of XML expand into gigabytes; a log never declares any.
            if (!reader.entityDeclarations().isEmpty() || reader.text().contains(QLatin1String("<!ENTITY")))
                return fail(tr("The document declares XML entities, which a log never does (line %1)")
                                .arg(reader.lineNumber()));
            break;
        case QXmlStreamReader::EntityReference:
            return fail(tr("The document refers to the undeclared entity \"%1\" (line %2)")
                            .arg(reader.name())
                            .arg(reader.lineNumber()));
        default:
            break;
        }
    }
    if (reader.hasError())
        return fail(tr("Not well-formed XML: %1 (line %2, column %3)")
                        .arg(reader.errorString())
                        .arg(reader.lineNumber())
                        .arg(reader.columnNumber()));
    return true;
}

bool VMLLogLoader::load(QIODevice *device, TelemetryDataPackage *package)
{
    if (!device || !device->isOpen() || !package) {
        setError(tr("The input is not open"));
        return false;
    }
    report() = LogReadReport();
    const qint64 total = device->isSequential() ? -1 : device->size() - device->pos();
    const auto tooLarge = [this](qint64 size) {
        setError(tr("The file is too large for an XML log (%1 MB; at most %2 MB are read)")
                     .arg(size >> 20)
                     .arg(kMaxBytes >> 20));
        return false;
    };
    if (total > kMaxBytes)
        return tooLarge(total);

    QByteArray xml;
    if (total >= 0)
        xml.reserve(int(total));
    for (;;) {
        const qint64 room = std::min(kChunkSize, kMaxBytes + 1 - xml.size());
        const int before = xml.size();
        xml.resize(before + int(room));
        const qint64 n = device->read(xml.data() + before, room);
        if (n < 0) {
            setError(tr("Read error: %1").arg(device->errorString()));
            return false;
        }
        xml.resize(before + int(n));
        if (xml.size() > kMaxBytes)
            return tooLarge(xml.size());
        if (n == 0) {
            if (device->isSequential() && !device->atEnd() && device->waitForReadyRead(30000))
                continue;
            break;
        }
        if (!reportProgress(xml.size() / 2, total))
            return false;
    }

    if (xml.trimmed().isEmpty()) {
        setError(tr("The file is empty"));
        return false;
    }
    QString error;
    if (!screen(xml, &error)) {
        setError(error);
        return false;
    }
    // The DOM is built by the same parser that screened the bytes, so the two never disagree.
    QDomDocument document;
    int line = 0;
    int column = 0;
    QXmlStreamReader reader(xml);
    if (!document.setContent(&reader, false, &error, &line, &column)) {
        setError(tr("Not well-formed XML: %1 (line %2, column %3)").arg(error).arg(line).arg(column));
        return false;
    }
    xml = QByteArray();
    const std::vector<Storage> storages = collectStorages(document.documentElement());
    if (storages.empty()) {
        setError(tr("No \"dataStorage\" element: this XML file is not a log"));
        return false;
    }

    qint64 entityCount = 0;
    for (const Storage &s : storages)
        entityCount += qint64(s.entities.size());
    const qint64 half = total >= 0 ? total / 2 : 0;
    qint64 done = 0;
    beginPackage(package, -1);
    LogReadReport &r = report();
    bool ok = true;
    for (const Storage &s : storages) {
        const quint32 id = parseDeviceId(s.element.attribute(QStringLiteral("dataStorageID")).trimmed());
        describeDevice(package, id, s.element.attribute(QStringLiteral("name")).trimmed());
        r.lines += 1 + qint64(s.descriptions.size()) + qint64(s.entities.size());
        ++r.readLines;
        for (const QDomElement &d : s.descriptions) {
            bool numbered = false;
            const quint32 param = d.attribute(QStringLiteral("attrID")).trimmed().toUInt(&numbered);
            if (numbered)
                ++r.readLines;
            else
                r.skip(d.lineNumber());
            // Param 0 names the device itself, which its storage already did.
            if (param != 0)
                describeParam(package, id, param, d.attribute(QStringLiteral("name")).trimmed(),
                              d.attribute(QStringLiteral("units")).trimmed());
        }
        const QString idField = deviceIdField(id);
        for (const QDomElement &e : s.entities) {
            QStringList fields = e.attribute(QStringLiteral("plainData")).split(QLatin1Char(';'));
            fields.insert(1, idField);
            // Damage is reported by the line of the element, which is what an editor shows.
            if (parseLine(fields, package))
                ++r.readLines;
            else
                r.skip(e.lineNumber());
            ++done;
            const qint64 position = total > 0 ? half + (total - half) * done / entityCount : done;
            if (done % kProgressEvery == 0 && !reportProgress(position, total)) {
                ok = false;
                break;
            }
        }
        if (!ok)
            break;
    }
    finishPackage(package);
    return ok;
}
