#include "widgets/layout/LayoutJsonValue.h"

#include <QJsonArray>
#include <QJsonDocument>

#include <cmath>
#include <limits>

namespace {
const LayoutJsonValue &undefinedValue()
{
    static const LayoutJsonValue undefined;
    return undefined;
}
} // namespace

const LayoutJsonValue &LayoutJsonValue::at(int index) const
{
    if (index < 0 || index >= size())
        return undefinedValue();
    return m_children[size_t(index)];
}

QString LayoutJsonValue::keyAt(int index) const
{
    if (m_kind != Object || index < 0 || index >= int(m_keys.size()))
        return QString();
    return m_keys[size_t(index)];
}

const LayoutJsonValue &LayoutJsonValue::value(const QString &key) const
{
    if (m_kind != Object)
        return undefinedValue();
    for (size_t i = 0; i < m_keys.size(); ++i) {
        if (m_keys[i] == key)
            return m_children[i];
    }
    for (size_t i = 0; i < m_keys.size(); ++i) {
        if (m_keys[i].compare(key, Qt::CaseInsensitive) == 0)
            return m_children[i];
    }
    return undefinedValue();
}

double LayoutJsonValue::toDouble(double defaultValue) const
{
    return m_kind == Number ? m_number : defaultValue;
}

int LayoutJsonValue::toInt(int defaultValue) const
{
    if (m_kind != Number || !std::isfinite(m_number))
        return defaultValue;
    if (m_number < double(std::numeric_limits<int>::min()) ||
        m_number > double(std::numeric_limits<int>::max()))
        return defaultValue;
    const int i = int(m_number);
    return double(i) == m_number ? i : defaultValue;
}

QString LayoutJsonValue::toString(const QString &defaultValue) const
{
    return m_kind == String ? m_string : defaultValue;
}

bool LayoutJsonValue::toBool(bool defaultValue) const
{
    return m_kind == Bool ? m_bool : defaultValue;
}

QByteArray LayoutJsonValue::text() const
{
    if (!m_text || m_kind == Undefined)
        return QByteArray();
    return m_text->mid(m_begin, m_end - m_begin);
}

QJsonValue LayoutJsonValue::toJsonValue() const
{
    switch (m_kind) {
    case Undefined:
        return QJsonValue(QJsonValue::Undefined);
    case Null:
        return QJsonValue(QJsonValue::Null);
    case Bool:
        return QJsonValue(m_bool);
    case Number:
        return QJsonValue(m_number);
    case String:
        return QJsonValue(m_string);
    case Array:
    case Object:
        break;
    }
    // The text is valid JSON by construction; Qt's parser builds the container.
    const QJsonDocument document = QJsonDocument::fromJson(text());
    if (m_kind == Array)
        return QJsonValue(document.array());
    return QJsonValue(document.object());
}
