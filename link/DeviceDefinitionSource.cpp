#include "link/DeviceDefinitionSource.h"

#include "link/DeviceExpression.h"

#include <QJsonArray>
#include <QMap>
#include <QSet>

#include <climits>
#include <cmath>

namespace {
const QString kHardware = QStringLiteral("hardware");

QString hex(qint64 v, int digits)
{
    return QStringLiteral("0x") + QString::number(v, 16).toUpper().rightJustified(digits, QLatin1Char('0'));
}

// An integer written as a JSON number or as a "0x..." text.
bool toInteger(const QJsonValue &v, qint64 *out)
{
    if (v.isDouble()) {
        const double d = v.toDouble();
        if (!std::isfinite(d) || d != std::floor(d) || std::fabs(d) > 9007199254740992.0)
            return false;
        *out = qint64(d);
        return true;
    }
    if (v.isString()) {
        const QString s = v.toString();
        if (!s.startsWith(QLatin1String("0x")) || s.size() < 3 || s.size() > 18)
            return false;
        for (int i = 2; i < s.size(); ++i) {
            const ushort c = s.at(i).unicode();
            if (!((c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F')))
                return false;
        }
        bool ok = false;
        const qulonglong u = s.mid(2).toULongLong(&ok, 16);
        if (!ok || u > 9007199254740992ULL)
            return false;
        *out = qint64(u);
        return true;
    }
    return false;
}

// What a value of `size` bytes can hold.
void sizeRange(int size, bool isSigned, qint64 *lo, qint64 *hi)
{
    const int bits = 8 * size;
    *lo = isSigned ? -(qint64(1) << (bits - 1)) : 0;
    *hi = isSigned ? (qint64(1) << (bits - 1)) - 1 : (qint64(1) << bits) - 1;
}

const QSet<QString> &textProperties()
{
    static const QSet<QString> s = {QStringLiteral("pText"), QStringLiteral("pFile"), QStringLiteral("pExt"),
                                    QStringLiteral("pFormat")};
    return s;
}

// Reads one source document; the first fault ends it with "file: item: reason".
class SourceReader
{
public:
    explicit SourceReader(const QString &file) : m_file(file) {}

    QString error;

    bool fail(const QString &where, const QString &what)
    {
        if (error.isEmpty())
            error = where.isEmpty() ? QStringLiteral("%1: %2").arg(m_file, what)
                                    : QStringLiteral("%1: %2: %3").arg(m_file, where, what);
        return false;
    }

    bool keys(const QJsonObject &o, const QStringList &allowed, const QStringList &required,
              const QString &where)
    {
        for (auto it = o.begin(); it != o.end(); ++it) {
            if (!allowed.contains(it.key()))
                return fail(where, QStringLiteral("unknown key \"%1\"").arg(it.key()));
        }
        for (const QString &k : required) {
            if (!o.contains(k))
                return fail(where, QStringLiteral("\"%1\" is missing").arg(k));
        }
        return true;
    }

    bool integer(const QJsonObject &o, const QString &key, qint64 lo, qint64 hi, qint64 *out,
                 const QString &where)
    {
        if (!o.contains(key))
            return true;
        if (!toInteger(o.value(key), out))
            return fail(where, QStringLiteral("\"%1\" must be an integer").arg(key));
        if (*out < lo || *out > hi)
            return fail(where,
                        QStringLiteral("\"%1\" %2 is outside %3..%4").arg(key).arg(*out).arg(lo).arg(hi));
        return true;
    }

    bool integer(const QJsonObject &o, const QString &key, qint64 lo, qint64 hi, int *out,
                 const QString &where)
    {
        qint64 v = *out;
        const bool ok = integer(o, key, lo, hi, &v, where);
        *out = int(v);
        return ok;
    }

    bool text(const QJsonObject &o, const QString &key, QString *out, const QString &where)
    {
        if (!o.contains(key))
            return true;
        if (!o.value(key).isString())
            return fail(where, QStringLiteral("\"%1\" must be a text").arg(key));
        *out = o.value(key).toString();
        return true;
    }

    bool boolean(const QJsonObject &o, const QString &key, bool *out, const QString &where)
    {
        if (!o.contains(key))
            return true;
        if (!o.value(key).isBool())
            return fail(where, QStringLiteral("\"%1\" must be true or false").arg(key));
        *out = o.value(key).toBool();
        return true;
    }

    bool array(const QJsonObject &o, const QString &key, QJsonArray *out, const QString &where)
    {
        if (!o.contains(key))
            return true;
        if (!o.value(key).isArray())
            return fail(where, QStringLiteral("\"%1\" must be a list").arg(key));
        *out = o.value(key).toArray();
        return true;
    }

    // [[value, "text"], ...] with distinct values in lo..hi.
    bool pairs(const QJsonArray &a, qint64 lo, qint64 hi, QVector<QPair<qint64, QString>> *out,
               const QString &where)
    {
        QSet<qint64> seen;
        for (const QJsonValue &v : a) {
            const QJsonArray pair = v.toArray();
            qint64 value = 0;
            if (!v.isArray() || pair.size() != 2 || !toInteger(pair.at(0), &value) || !pair.at(1).isString())
                return fail(where, QStringLiteral("each choice must be [value, \"text\"]"));
            if (value < lo || value > hi)
                return fail(where, QStringLiteral("choice %1 is outside %2..%3").arg(value).arg(lo).arg(hi));
            if (seen.contains(value))
                return fail(where, QStringLiteral("choice %1 is given twice").arg(value));
            seen.insert(value);
            out->append({value, pair.at(1).toString()});
        }
        return true;
    }

    bool device(const QJsonObject &o, DeviceDefinition *d);

private:
    bool parameter(const QJsonObject &o, const QString &where, DeviceParameter *p);
    bool command(const QJsonObject &o, const QString &where, DeviceCommand *c);
    bool page(const QJsonObject &o, const QString &where, DevicePage *p);
    bool element(const QJsonObject &o, const QString &where, DevicePageElement *e);
    bool references(const DeviceDefinition &d);

    QString m_file;
};

bool SourceReader::device(const QJsonObject &o, DeviceDefinition *d)
{
    QString where = QStringLiteral("device");
    if (!keys(o,
              {QStringLiteral("name"), kHardware, QStringLiteral("firmware"), QStringLiteral("parameters"),
               QStringLiteral("pages"), QStringLiteral("commands")},
              {QStringLiteral("name"), kHardware}, where) ||
        !text(o, QStringLiteral("name"), &d->name, where))
        return false;
    if (d->name.trimmed().isEmpty())
        return fail(where, QStringLiteral("\"name\" is empty"));
    where = QStringLiteral("device \"%1\"").arg(d->name);

    QJsonArray list;
    if (!array(o, kHardware, &list, where))
        return false;
    if (list.isEmpty())
        return fail(where, QStringLiteral("\"hardware\" lists no hardware value"));
    for (const QJsonValue &v : list) {
        qint64 hw = 0;
        if (!toInteger(v, &hw) || hw < 0 || hw > 0xFFFF)
            return fail(where, QStringLiteral("each hardware value must be an integer 0..0xFFFF"));
        if (d->hardware.contains(quint16(hw)))
            return fail(where, QStringLiteral("hardware %1 is listed twice").arg(hex(hw, 4)));
        d->hardware.append(quint16(hw));
    }

    QString firmware = QStringLiteral("0.0");
    if (!text(o, QStringLiteral("firmware"), &firmware, where))
        return false;
    const QStringList fw = firmware.split(QLatin1Char('.'));
    bool okMajor = false;
    bool okMinor = false;
    d->firmwareMajor = fw.value(0).toInt(&okMajor);
    d->firmwareMinor = fw.value(1).toInt(&okMinor);
    if (fw.size() != 2 || !okMajor || !okMinor || d->firmwareMajor < 0 || d->firmwareMajor > 255 ||
        d->firmwareMinor < 0 || d->firmwareMinor > 255)
        return fail(
            where,
            QStringLiteral("\"firmware\" must be \"major.minor\" (0..255 each), not \"%1\"").arg(firmware));

    QSet<int> ids;
    QMap<int, int> byAddress; // first register -> index; the parameters so far never overlap
    list = QJsonArray();
    if (!array(o, QStringLiteral("parameters"), &list, where))
        return false;
    for (int i = 0; i < list.size(); ++i) {
        DeviceParameter p;
        const QString at = QStringLiteral("%1, parameter %2").arg(where, QString::number(i + 1));
        if (!list.at(i).isObject())
            return fail(at, QStringLiteral("not an object"));
        if (!parameter(list.at(i).toObject(), at, &p))
            return false;
        const QString item = QStringLiteral("%1 (\"%2\")").arg(at, p.name);
        if (ids.contains(p.id))
            return fail(item, QStringLiteral("id %1 is used twice").arg(p.id));
        ids.insert(p.id);
        // Only the parameter starting last at or before this one's last register can overlap it.
        auto next = byAddress.upperBound(p.address + p.size - 1);
        if (next != byAddress.begin()) {
            const DeviceParameter &q = d->parameters.at((--next).value());
            if (q.address + q.size > p.address)
                return fail(item, QStringLiteral("registers %1..%2 overlap \"%3\" (id %4) at %5..%6")
                                      .arg(hex(p.address, 4), hex(p.address + p.size - 1, 4), q.name,
                                           QString::number(q.id), hex(q.address, 4),
                                           hex(q.address + q.size - 1, 4)));
        }
        byAddress.insert(p.address, d->parameters.size());
        d->parameters.append(p);
    }

    ids.clear();
    list = QJsonArray();
    if (!array(o, QStringLiteral("commands"), &list, where))
        return false;
    for (int i = 0; i < list.size(); ++i) {
        DeviceCommand c;
        const QString item = QStringLiteral("%1, command %2").arg(where, QString::number(i + 1));
        if (!list.at(i).isObject())
            return fail(item, QStringLiteral("not an object"));
        if (!command(list.at(i).toObject(), item, &c))
            return false;
        if (ids.contains(c.id))
            return fail(item, QStringLiteral("id %1 is used twice").arg(c.id));
        ids.insert(c.id);
        d->commands.append(c);
    }

    ids.clear();
    list = QJsonArray();
    if (!array(o, QStringLiteral("pages"), &list, where))
        return false;
    for (int i = 0; i < list.size(); ++i) {
        DevicePage p;
        const QString item = QStringLiteral("%1, page %2").arg(where, QString::number(i + 1));
        if (!list.at(i).isObject())
            return fail(item, QStringLiteral("not an object"));
        if (!page(list.at(i).toObject(), item, &p))
            return false;
        if (ids.contains(p.id))
            return fail(item, QStringLiteral("id %1 is used twice").arg(p.id));
        ids.insert(p.id);
        d->pages.append(p);
    }
    return references(*d);
}

bool SourceReader::parameter(const QJsonObject &o, const QString &where, DeviceParameter *p)
{
    qint64 lo = 0;
    qint64 hi = 0;
    const QString kMin = QStringLiteral("min");
    const QString kMax = QStringLiteral("max");
    qint64 address = 0;
    const QString item =
        o.value(QStringLiteral("name")).isString()
            ? QStringLiteral("%1 (\"%2\")").arg(where, o.value(QStringLiteral("name")).toString())
            : where;
    if (!keys(o,
              {QStringLiteral("id"), QStringLiteral("address"), QStringLiteral("size"),
               QStringLiteral("signed"), QStringLiteral("decimals"), kMin, kMax, QStringLiteral("default"),
               QStringLiteral("readOnly"), QStringLiteral("name"), QStringLiteral("description"),
               QStringLiteral("choices")},
              {QStringLiteral("id"), QStringLiteral("address"), QStringLiteral("size"),
               QStringLiteral("name"), kMin, kMax},
              item) ||
        !integer(o, QStringLiteral("id"), 0, DeviceExpression::kMaxParam, &p->id, item) ||
        !text(o, QStringLiteral("name"), &p->name, item) ||
        !integer(o, QStringLiteral("address"), 0, DeviceCommand::kAddressBase - 1, &address, item) ||
        !integer(o, QStringLiteral("size"), 1, 4, &p->size, item) ||
        !boolean(o, QStringLiteral("signed"), &p->isSigned, item) ||
        !integer(o, QStringLiteral("decimals"), 0, 9, &p->decimals, item) ||
        !boolean(o, QStringLiteral("readOnly"), &p->readOnly, item) ||
        !text(o, QStringLiteral("description"), &p->description, item))
        return false;
    p->address = quint16(address);
    if (address + p->size > DeviceCommand::kAddressBase)
        return fail(item, QStringLiteral("registers run into the command addresses from 0xF000"));
    sizeRange(p->size, p->isSigned, &lo, &hi);
    if (!integer(o, kMin, lo, hi, &p->min, item) || !integer(o, kMax, lo, hi, &p->max, item))
        return false;
    if (p->min > p->max)
        return fail(item, QStringLiteral("min %1 > max %2").arg(p->min).arg(p->max));
    p->defaultValue = qBound(p->min, qint64(0), p->max);
    if (!integer(o, QStringLiteral("default"), p->min, p->max, &p->defaultValue, item))
        return false;
    QJsonArray choices;
    return array(o, QStringLiteral("choices"), &choices, item) &&
           pairs(choices, p->min, p->max, &p->choices, item);
}

bool SourceReader::command(const QJsonObject &o, const QString &where, DeviceCommand *c)
{
    return keys(o,
                {QStringLiteral("id"), QStringLiteral("text"), QStringLiteral("flags"),
                 QStringLiteral("value")},
                {QStringLiteral("id"), QStringLiteral("text")}, where) &&
           integer(o, QStringLiteral("id"), 0, DeviceCommand::kMaxId, &c->id, where) &&
           text(o, QStringLiteral("text"), &c->text, where) &&
           integer(o, QStringLiteral("flags"), 0, 0xFFFF, &c->flags, where) &&
           integer(o, QStringLiteral("value"), INT_MIN, INT_MAX, &c->value, where);
}

bool SourceReader::page(const QJsonObject &o, const QString &where, DevicePage *p)
{
    QJsonArray list;
    if (!keys(o, {QStringLiteral("id"), QStringLiteral("title"), QStringLiteral("elements")},
              {QStringLiteral("id"), QStringLiteral("title")}, where) ||
        !integer(o, QStringLiteral("id"), 0, 0xFFFF, &p->id, where) ||
        !text(o, QStringLiteral("title"), &p->title, where) ||
        !array(o, QStringLiteral("elements"), &list, where))
        return false;
    for (int i = 0; i < list.size(); ++i) {
        DevicePageElement e;
        const QString item = QStringLiteral("%1, element %2").arg(where, QString::number(i + 1));
        if (!list.at(i).isObject())
            return fail(item, QStringLiteral("not an object"));
        if (!element(list.at(i).toObject(), item, &e))
            return false;
        p->elements.append(e);
    }
    // A row takes the next pItems components; they must be there.
    for (int i = 0; i < p->elements.size(); ++i) {
        const int items = p->elements.at(i).properties.value(QStringLiteral("pItems")).toInt();
        if (p->elements.at(i).kind == QLatin1String("Row") && (items < 1 || i + items >= p->elements.size()))
            return fail(QStringLiteral("%1, element %2 (Row)").arg(where, QString::number(i + 1)),
                        QStringLiteral("\"pItems\" must name 1 or more of the elements that follow"));
    }
    return true;
}

bool SourceReader::element(const QJsonObject &o, const QString &where, DevicePageElement *e)
{
    if (!o.value(QStringLiteral("kind")).isString())
        return fail(where, QStringLiteral("\"kind\" must be one of %1")
                               .arg(DeviceDefinitions::elementKinds().join(QLatin1String(", "))));
    e->kind = o.value(QStringLiteral("kind")).toString();
    if (!DeviceDefinitions::elementKinds().contains(e->kind))
        return fail(where, QStringLiteral("unknown kind \"%1\"").arg(e->kind));
    const QString item = QStringLiteral("%1 (%2)").arg(where, e->kind);
    for (auto it = o.begin(); it != o.end(); ++it) {
        const QString &key = it.key();
        const QJsonValue v = it.value();
        if (key == QLatin1String("kind"))
            continue;
        if (!DeviceDefinitions::propertyNames().contains(key))
            return fail(item, QStringLiteral("unknown key \"%1\"").arg(key));
        if (textProperties().contains(key)) {
            if (!v.isString())
                return fail(item, QStringLiteral("\"%1\" must be a text").arg(key));
            e->properties.insert(key, v.toString());
        } else if (key == QLatin1String("visible")) {
            if (!v.isString() && !v.isBool())
                return fail(item, QStringLiteral("\"visible\" must be true, false or an expression"));
            if (v.isString()) {
                const DeviceExpression x = DeviceExpression::number(v.toString());
                if (!x.isValid())
                    return fail(item, QStringLiteral("\"visible\": %1").arg(x.error()));
            }
            e->properties.insert(key, v.toVariant());
        } else if (key == QLatin1String("enabled")) {
            if (!v.isBool())
                return fail(item, QStringLiteral("\"enabled\" must be true or false"));
            e->properties.insert(key, v.toBool());
        } else if (key == QLatin1String("pFloatValue")) {
            if (!v.isDouble())
                return fail(item, QStringLiteral("\"pFloatValue\" must be a number"));
            e->properties.insert(key, v.toDouble());
        } else if (key == QLatin1String("pKeyValues")) {
            QVector<QPair<qint64, QString>> choices;
            if (!v.isArray() || !pairs(v.toArray(), INT_MIN, INT_MAX, &choices,
                                       QStringLiteral("%1, \"pKeyValues\"").arg(item)))
                return error.isEmpty() ? fail(item, QStringLiteral("\"pKeyValues\" must be a list")) : false;
            QVariantList list;
            for (const auto &c : choices)
                list.append(QVariant(QVariantList{int(c.first), c.second}));
            e->properties.insert(key, list);
        } else {
            qint64 n = 0;
            if (!toInteger(v, &n) || n < INT_MIN || n > INT_MAX)
                return fail(item, QStringLiteral("\"%1\" must be an integer").arg(key));
            e->properties.insert(key, int(n));
        }
    }
    // Texts that the page evaluates must parse now, not when a user opens the page.
    const QString text = e->properties.value(QStringLiteral("pText")).toString();
    if (e->properties.value(QStringLiteral("pDynamic")).toInt() != 0) {
        const DeviceExpression x = DeviceExpression::label(text);
        if (!x.isValid())
            return fail(item, QStringLiteral("\"pText\": %1").arg(x.error()));
    }
    if (e->kind == QLatin1String("Channel") && e->properties.contains(QStringLiteral("pText"))) {
        const DeviceExpression x = DeviceExpression::number(text);
        if (!x.isValid())
            return fail(item, QStringLiteral("\"pText\": %1").arg(x.error()));
    }
    return true;
}

// Elements name parameters, commands and pages that must exist; expressions may only read parameters.
bool SourceReader::references(const DeviceDefinition &d)
{
    QSet<int> params;
    QSet<int> commands;
    QSet<int> pages;
    for (const DeviceParameter &p : d.parameters)
        params.insert(p.id);
    for (const DeviceCommand &c : d.commands)
        commands.insert(c.id);
    for (const DevicePage &p : d.pages)
        pages.insert(p.id);
    for (int pi = 0; pi < d.pages.size(); ++pi) {
        const DevicePage &page = d.pages.at(pi);
        for (int ei = 0; ei < page.elements.size(); ++ei) {
            const DevicePageElement &e = page.elements.at(ei);
            const QString item = QStringLiteral("device \"%1\", page %2, element %3 (%4)")
                                     .arg(d.name, QString::number(pi + 1), QString::number(ei + 1), e.kind);
            const QVariantMap &p = e.properties;
            const int param = p.value(QStringLiteral("pParam")).toInt();
            if (p.contains(QStringLiteral("pParam")) && !(e.kind == QLatin1String("Button") && param == 0) &&
                !params.contains(param))
                return fail(item, QStringLiteral("\"pParam\" %1 is no parameter of this device").arg(param));
            const int command = p.value(QStringLiteral("pCommand")).toInt();
            if (p.contains(QStringLiteral("pCommand")) && !commands.contains(command))
                return fail(item,
                            QStringLiteral("\"pCommand\" %1 is no command of this device").arg(command));
            const int target = p.value(QStringLiteral("pPage")).toInt();
            if (p.contains(QStringLiteral("pPage")) && !pages.contains(target))
                return fail(item, QStringLiteral("\"pPage\" %1 is no page of this device").arg(target));
        }
    }
    return true;
}

QJsonObject toJson(const DeviceDefinition &d)
{
    QJsonArray hardware;
    for (quint16 hw : d.hardware)
        hardware.append(hex(hw, 4));
    QJsonArray parameters;
    for (const DeviceParameter &p : d.parameters) {
        QJsonArray choices;
        for (const auto &c : p.choices)
            choices.append(QJsonArray{double(c.first), c.second});
        QJsonObject o{{QStringLiteral("id"), p.id},
                      {QStringLiteral("address"), hex(p.address, 4)},
                      {QStringLiteral("size"), p.size},
                      {QStringLiteral("signed"), p.isSigned},
                      {QStringLiteral("decimals"), p.decimals},
                      {QStringLiteral("min"), double(p.min)},
                      {QStringLiteral("max"), double(p.max)},
                      {QStringLiteral("default"), double(p.defaultValue)},
                      {QStringLiteral("readOnly"), p.readOnly},
                      {QStringLiteral("name"), p.name},
                      {QStringLiteral("description"), p.description}};
        if (!choices.isEmpty())
            o.insert(QStringLiteral("choices"), choices);
        parameters.append(o);
    }
    QJsonArray commands;
    for (const DeviceCommand &c : d.commands)
        commands.append(QJsonObject{{QStringLiteral("id"), c.id},
                                    {QStringLiteral("text"), c.text},
                                    {QStringLiteral("flags"), c.flags},
                                    {QStringLiteral("value"), c.value}});
    QJsonArray pages;
    for (const DevicePage &p : d.pages) {
        QJsonArray elements;
        for (const DevicePageElement &e : p.elements) {
            QJsonObject o = QJsonObject::fromVariantMap(e.properties);
            o.insert(QStringLiteral("kind"), e.kind);
            elements.append(o);
        }
        pages.append(QJsonObject{{QStringLiteral("id"), p.id},
                                 {QStringLiteral("title"), p.title},
                                 {QStringLiteral("elements"), elements}});
    }
    return QJsonObject{
        {QStringLiteral("name"), d.name},
        {kHardware, hardware},
        {QStringLiteral("firmware"), QStringLiteral("%1.%2").arg(d.firmwareMajor).arg(d.firmwareMinor)},
        {QStringLiteral("parameters"), parameters},
        {QStringLiteral("commands"), commands},
        {QStringLiteral("pages"), pages}};
}

} // namespace

bool DeviceDefinitionSource::read(const QJsonObject &o, const QString &file, DeviceDefinition *d,
                                  QString *error)
{
    SourceReader reader(file);
    if (reader.device(o, d))
        return true;
    *error = reader.error;
    return false;
}

QJsonObject DeviceDefinitionSource::write(const DeviceDefinition &d)
{
    return toJson(d);
}

QString DeviceDefinitionSource::hexText(qint64 value, int digits)
{
    return hex(value, digits);
}

QString DeviceDefinitionSource::duplicateKey(const QByteArray &json, int *line)
{
    QVector<QSet<QByteArray>> objects; // the keys of each open object or array, innermost last
    *line = 1;
    for (int i = 0; i < json.size(); ++i) {
        const char c = json.at(i);
        if (c == '\n') {
            ++*line;
        } else if (c == '{' || c == '[') {
            objects.append(QSet<QByteArray>());
        } else if ((c == '}' || c == ']') && !objects.isEmpty()) {
            objects.removeLast();
        } else if (c == '"') {
            const int begin = i + 1;
            for (++i; i < json.size() && json.at(i) != '"'; ++i) {
                if (json.at(i) == '\\')
                    ++i;
            }
            const QByteArray text = json.mid(begin, i - begin);
            int next = i + 1;
            while (next < json.size() && (json.at(next) == ' ' || json.at(next) == '\t' ||
                                          json.at(next) == '\r' || json.at(next) == '\n'))
                ++next;
            if (next < json.size() && json.at(next) == ':' && !objects.isEmpty()) {
                if (objects.last().contains(text))
                    return QString::fromUtf8(text);
                objects.last().insert(text);
            }
        }
    }
    return QString();
}
