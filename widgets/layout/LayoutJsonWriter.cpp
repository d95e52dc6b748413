#include "widgets/layout/LayoutJsonWriter.h"

#include <QLocale>

#include <cmath>

void LayoutJsonWriter::separate()
{
    if (m_afterKey) {
        m_afterKey = false;
        return;
    }
    if (!m_empty.empty()) {
        if (!m_empty.back())
            m_out.append(',');
        m_empty.back() = false;
    }
}

void LayoutJsonWriter::beginObject()
{
    separate();
    m_out.append('{');
    m_empty.push_back(true);
}

void LayoutJsonWriter::endObject()
{
    m_out.append('}');
    if (!m_empty.empty())
        m_empty.pop_back();
}

void LayoutJsonWriter::beginArray()
{
    separate();
    m_out.append('[');
    m_empty.push_back(true);
}

void LayoutJsonWriter::endArray()
{
    m_out.append(']');
    if (!m_empty.empty())
        m_empty.pop_back();
}

void LayoutJsonWriter::key(const QString &name)
{
    separate();
    m_out.append(quoted(name));
    m_out.append(':');
    m_afterKey = true;
}

void LayoutJsonWriter::writeInt(qint64 value)
{
    separate();
    m_out.append(QByteArray::number(value));
}

void LayoutJsonWriter::writeDouble(double value)
{
    separate();
    // JSON has no infinity or NaN.
    if (!std::isfinite(value))
        m_out.append("null");
    else
        m_out.append(QByteArray::number(value, 'g', QLocale::FloatingPointShortest));
}

void LayoutJsonWriter::writeBool(bool value)
{
    separate();
    m_out.append(value ? "true" : "false");
}

void LayoutJsonWriter::writeString(const QString &value)
{
    separate();
    m_out.append(quoted(value));
}

void LayoutJsonWriter::writeNull()
{
    separate();
    m_out.append("null");
}

void LayoutJsonWriter::writeRaw(const QByteArray &json)
{
    separate();
    m_out.append(json);
}

void LayoutJsonWriter::writeRawMembers(const QByteArray &members)
{
    if (members.isEmpty())
        return;
    separate();
    m_out.append(members);
}

void LayoutJsonWriter::writeInt(const QString &name, qint64 value)
{
    key(name);
    writeInt(value);
}

void LayoutJsonWriter::writeString(const QString &name, const QString &value)
{
    key(name);
    writeString(value);
}

void LayoutJsonWriter::writeBool(const QString &name, bool value)
{
    key(name);
    writeBool(value);
}

QByteArray LayoutJsonWriter::quoted(const QString &text)
{
    const QByteArray utf8 = text.toUtf8();
    QByteArray out;
    out.reserve(utf8.size() + 2);
    out.append('"');
    for (const char c : utf8) {
        switch (c) {
        case '"':
            out.append("\\\"");
            break;
        case '\\':
            out.append("\\\\");
            break;
        case '\b':
            out.append("\\b");
            break;
        case '\f':
            out.append("\\f");
            break;
        case '\n':
            out.append("\\n");
            break;
        case '\r':
            out.append("\\r");
            break;
        case '\t':
            out.append("\\t");
            break;
        default:
            if (uchar(c) < 0x20)
                out.append("\\u00").append(QByteArray::number(uchar(c), 16).rightJustified(2, '0'));
            else
                out.append(c);
        }
    }
    out.append('"');
    return out;
}
