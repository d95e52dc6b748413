#include "cli/JsonDump.h"

#include "telemetry/TelemetryDataPackage.h"

#include <charconv>
#include <cmath>

namespace {
class Sink
{
public:
    explicit Sink(std::FILE *out) : m_out(out) { m_buffer.reserve(kFlushAt + 4096); }
    QByteArray &buffer() { return m_buffer; }
    void maybeFlush()
    {
        if (m_buffer.size() >= kFlushAt)
            flush();
    }
    bool flush()
    {
        if (!m_buffer.isEmpty() &&
            std::fwrite(m_buffer.constData(), 1, size_t(m_buffer.size()), m_out) != size_t(m_buffer.size()))
            m_ok = false;
        m_buffer.clear();
        return m_ok;
    }

private:
    static constexpr int kFlushAt = 1 << 20;
    std::FILE *m_out;
    QByteArray m_buffer;
    bool m_ok = true;
};

void appendInt(QByteArray &out, qint64 v)
{
    char buf[24];
    out.append(buf, int(std::to_chars(buf, buf + sizeof buf, v).ptr - buf));
}
} // namespace

void JsonDump::appendString(QByteArray &out, const QString &text)
{
    out += '"';
    for (const char c : text.toUtf8()) {
        const unsigned char u = static_cast<unsigned char>(c);
        if (c == '"' || c == '\\') {
            out += '\\';
            out += c;
        } else if (u < 0x20) {
            char buf[8];
            std::snprintf(buf, sizeof buf, "\\u%04x", u);
            out += buf;
        } else {
            out += c;
        }
    }
    out += '"';
}

void JsonDump::appendNumber(QByteArray &out, double value)
{
    if (!std::isfinite(value)) {
        out += "null";
        return;
    }
    char buf[32];
    out.append(buf, int(std::to_chars(buf, buf + sizeof buf, value).ptr - buf));
}

bool JsonDump::write(const TelemetryDataPackage &package, std::FILE *out)
{
    Sink sink(out);
    QByteArray &b = sink.buffer();
    b += "{\"name\":";
    appendString(b, package.name());
    b += ",\"description\":";
    appendString(b, package.description());
    b += ",\"first_timestamp\":";
    appendInt(b, package.firstTimestamp());
    b += ",\"devices\":[";
    bool firstDevice = true;
    for (const TelemetrySensor &device : package.devices()) {
        b += firstDevice ? "{\"id\":" : ",{\"id\":";
        firstDevice = false;
        appendInt(b, device.id());
        b += ",\"name\":";
        appendString(b, device.name());
        b += ",\"params\":[";
        bool firstParam = true;
        for (const TelemetryVar &var : device.vars()) {
            b += firstParam ? "{\"param\":" : ",{\"param\":";
            firstParam = false;
            appendInt(b, var.param());
            b += ",\"label\":";
            appendString(b, var.label());
            b += ",\"unit\":";
            appendString(b, var.unit());
            b += ",\"values\":[";
            const QVector<TelemetryValue> &values = var.values();
            for (int i = 0; i < values.size(); ++i) {
                const TelemetryValue &v = values.at(i);
                b += i ? ",[" : "[";
                appendInt(b, v.timestamp);
                b += ',';
                appendInt(b, v.type);
                b += ',';
                appendInt(b, v.decimals);
                b += ',';
                appendInt(b, v.value);
                b += ']';
                sink.maybeFlush();
            }
            b += "],\"numbers\":[";
            for (int i = 0; i < values.size(); ++i) {
                if (i)
                    b += ',';
                appendNumber(b, values.at(i).toNumber());
                sink.maybeFlush();
            }
            b += "]}";
        }
        b += "]}";
    }
    b += "],\"messages\":[";
    bool firstMessage = true;
    for (const TelemetryMessage &m : package.messages()) {
        b += firstMessage ? "{\"ts\":" : ",{\"ts\":";
        firstMessage = false;
        appendInt(b, m.timestamp);
        b += ",\"device\":";
        appendInt(b, m.deviceId);
        b += ",\"text\":";
        appendString(b, m.displayText());
        b += ",\"type\":";
        appendInt(b, m.isAlarm() ? TelemetryMessage::kAlarmType : m.type);
        b += ",\"value\":";
        appendInt(b, m.isAlarm() ? qint32(m.alarm) : m.value);
        b += '}';
        sink.maybeFlush();
    }
    b += "]}\n";
    return sink.flush() && std::fflush(out) == 0;
}
