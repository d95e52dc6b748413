#include "telemetry/LogFileWriter.h"

#include "telemetry/AtomicFile.h"

#include <QFileInfo>
#include <QTextCodec>
#include <QtGlobal>

#include <charconv>
#include <climits>
#include <cstring>
#include <memory>
#include <vector>

namespace {
// Writes v zero-padded to width digits (a minus sign counts towards the width) and returns the end.
char *putPadded(char *out, qint64 v, int width)
{
    char digits[24];
    const bool negative = v < 0;
    const quint64 mag = negative ? quint64(0) - quint64(v) : quint64(v);
    char *e = std::to_chars(digits, digits + sizeof digits, mag).ptr;
    const int n = int(e - digits);
    if (negative) {
        *out++ = '-';
        --width;
    }
    for (int i = n; i < width; ++i)
        *out++ = '0';
    std::memcpy(out, digits, size_t(n));
    return out + n;
}

char *putNumber(char *out, qint64 v)
{
    return std::to_chars(out, out + 24, v).ptr;
}

// Longest text one value group or line opening can take: ";" + four numbers of at most 20 characters.
constexpr qint64 kMaxGroupBytes = 1 + 4 * 21;
constexpr qint64 kMaxLineOpenBytes = 21 + 1 + 10 + 1;
} // namespace

QByteArray LogFileWriter::deviceIdField(quint32 id)
{
    char buf[16];
    char *e = putPadded(buf, qint64(id & 0xFFFF), 5);
    e = putPadded(e, qint64(id >> 16), 5);
    return QByteArray(buf, int(e - buf));
}

QByteArray LogFileWriter::write(const TelemetryDataPackage &package)
{
    QByteArray out;
    out += "# " + package.name().toUtf8() + '\n';
    out += "# " + package.description().toUtf8() + '\n';

    QTextCodec *codec = QTextCodec::codecForName("Windows-1250");
    if (!codec)
        return out;
    std::unique_ptr<QTextEncoder> encoder(codec->makeEncoder());

    const QVector<TelemetrySensor> &devices = package.devices();
    std::vector<QByteArray> idFields;
    idFields.reserve(size_t(devices.size()));
    for (const TelemetrySensor &device : devices) {
        const QByteArray id = deviceIdField(device.id());
        idFields.push_back(id);
        out += "000000000;" + id + ";0;" + encoder->fromUnicode(device.name()) + "; \n";
        for (const TelemetryVar &var : device.vars()) {
            out += "000000000;" + id + ';' + QByteArray::number(var.param()) + ';' +
                   encoder->fromUnicode(var.label()) + ';' + encoder->fromUnicode(var.unit()) + '\n';
        }
    }

    // Flat list of every variable with a cursor; the head timestamp of each is kept in one array so the
    // search for the next line's time is a tight scan.
    struct Column
    {
        const TelemetryValue *values;
        int count;
        int device;
        quint32 param;
    };
    std::vector<Column> columns;
    std::vector<qint64> head;
    std::vector<int> cursor;
    qint64 samples = 0;
    for (int d = 0; d < devices.size(); ++d) {
        for (const TelemetryVar &var : devices.at(d).vars()) {
            columns.push_back({var.values().constData(), var.count(), d, var.param()});
            head.push_back(var.count() > 0 ? qint64(var.values().at(0).timestamp) : LLONG_MAX);
            cursor.push_back(0);
            samples += var.count();
        }
    }
    // Reserve the worst case; pages that are never written cost no memory, and the squeeze at the end
    // gives the rest back.
    const qint64 bound = out.size() + samples * (kMaxGroupBytes + kMaxLineOpenBytes) + 64;
    const qint64 maxSize = INT_MAX - 1024;
    const bool clamped = bound > maxSize;
    const int length = out.size();
    out.resize(int(std::min(bound, maxSize)));
    char *base = out.data();
    char *w = base + length;
    const char *limit = base + out.size();
    const size_t ncol = columns.size();
    const qint64 worstLine = kMaxLineOpenBytes + kMaxGroupBytes * qint64(ncol) + 1;
    for (;;) {
        size_t first = 0;
        qint64 ts = LLONG_MAX;
        for (size_t i = 0; i < ncol; ++i) {
            if (head[i] < ts) {
                ts = head[i];
                first = i;
            }
        }
        if (ts == LLONG_MAX)
            break;
        if (clamped && limit - w < worstLine) {
            // Only a log beyond the byte array's 2 GiB limit gets here.
            qWarning("Log too large to write in one piece; samples after this point are left out");
            break;
        }
        const int device = columns[first].device;
        w = putPadded(w, ts, 9);
        *w++ = ';';
        const QByteArray &id = idFields[size_t(device)];
        std::memcpy(w, id.constData(), size_t(id.size()));
        w += id.size();
        for (size_t i = first; i < ncol && columns[i].device == device; ++i) {
            if (head[i] != ts)
                continue;
            const TelemetryValue &v = columns[i].values[cursor[i]];
            *w++ = ';';
            w = putNumber(w, columns[i].param);
            *w++ = ';';
            w = putNumber(w, v.type);
            *w++ = ';';
            w = putNumber(w, v.decimals);
            *w++ = ';';
            w = putNumber(w, v.value);
            const int next = ++cursor[i];
            head[i] = next < columns[i].count ? qint64(columns[i].values[next].timestamp) : LLONG_MAX;
        }
        *w++ = '\n';
    }
    out.resize(int(w - base));
    out.squeeze();

    for (const TelemetryMessage &m : package.messages()) {
        const bool alarm = m.isAlarm();
        const QString text = alarm ? m.displayText() : m.text;
        const qint32 type = alarm ? TelemetryMessage::kAlarmType : m.type;
        const qint32 value = alarm ? qint32(m.alarm) : m.value;
        char buf[64];
        char *e = putPadded(buf, qint64(m.timestamp) + 1, 9);
        out.append(buf, int(e - buf));
        out += ';' + deviceIdField(m.deviceId) + ";15;16;0;" + text.toUtf8() + ';' +
               QByteArray::number(type) + ';' + QByteArray::number(value) + '\n';
    }
    return out;
}

bool LogFileWriter::writeFile(const TelemetryDataPackage &package, const QString &path, QString *error)
{
    return AtomicFile::write(path, write(package), error);
}

QString LogFileWriter::withLogSuffix(const QString &path)
{
    if (path.isEmpty() || !QFileInfo(path).suffix().isEmpty())
        return path;
    return path + QStringLiteral(".log");
}
