#pragma once

#include <QByteArray>
#include <QString>

#include <vector>

// Streaming writer for layout documents: compact JSON with the keys in the order they are written
// (QJsonObject would sort them, and the layout format fixes the order).
class LayoutJsonWriter
{
public:
    void beginObject();
    void endObject();
    void beginArray();
    void endArray();
    // Inside an object: the next value belongs to this key.
    void key(const QString &name);

    void writeInt(qint64 value);
    void writeDouble(double value);
    void writeBool(bool value);
    void writeString(const QString &value);
    void writeNull();
    // A complete JSON value given as text, copied unchanged.
    void writeRaw(const QByteArray &json);
    // Members ("a":1,"b":2) given as text, copied unchanged into the open object.
    void writeRawMembers(const QByteArray &members);

    // Key and value in one call.
    void writeInt(const QString &name, qint64 value);
    void writeString(const QString &name, const QString &value);
    void writeBool(const QString &name, bool value);

    QByteArray data() const { return m_out; }

    static QByteArray quoted(const QString &text);

private:
    void separate();

    QByteArray m_out;
    std::vector<bool> m_empty; // per open object or array: nothing written into it yet
    bool m_afterKey = false;
};
