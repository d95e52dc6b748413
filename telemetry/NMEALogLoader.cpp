#include "telemetry/NMEALogLoader.h"

#include "telemetry/ChunkedLineReader.h"
#include "telemetry/NmeaInfoSourceLoader.h"

#include <QGeoPositionInfo>
#include <QIODevice>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

namespace {
constexpr qint64 kDayMs = 24 * 3600 * 1000;
// A time of day that drops by more than this without a date is taken for midnight passing.
constexpr qint64 kHalfDayMs = kDayMs / 2;
// Timestamps are 32-bit milliseconds: a recording ends about 24 days after its first fix.
constexpr qint64 kMaxElapsedMs = std::numeric_limits<qint32>::max() - NMEALogLoader::kFirstFixMs;
constexpr int kMaxFields = 24;
const QDate kGpsEpoch(1980, 1, 6);

struct Field
{
    const char *data = nullptr;
    int size = 0;
    bool isEmpty() const { return size == 0; }
    char first() const { return size > 0 ? data[0] : '\0'; }
};

// Fields between "$" and "*", split at ","; field 0 is the address ("GPGGA").
int splitFields(const char *data, int size, Field *fields)
{
    const char *p = data + 1;
    const char *end = data + size;
    if (const void *star = std::memchr(p, '*', size_t(end - p)))
        end = static_cast<const char *>(star);
    int n = 0;
    while (n < kMaxFields) {
        const char *comma = static_cast<const char *>(std::memchr(p, ',', size_t(end - p)));
        const char *stop = comma ? comma : end;
        fields[n++] = {p, int(stop - p)};
        if (!comma)
            break;
        p = comma + 1;
    }
    return n;
}

Field field(const Field *fields, int count, int index)
{
    return index < count ? fields[index] : Field();
}

bool parseDigits(const char *p, int count, int *value)
{
    int v = 0;
    for (int i = 0; i < count; ++i) {
        const unsigned d = unsigned(static_cast<unsigned char>(p[i])) - unsigned('0');
        if (d > 9)
            return false;
        v = v * 10 + int(d);
    }
    *value = v;
    return true;
}

bool parseInt(const Field &f, int *value)
{
    return f.size > 0 && f.size <= 9 && parseDigits(f.data, f.size, value);
}

// "hhmmss" with an optional fraction, as milliseconds since midnight.
bool parseTime(const Field &f, int *ms)
{
    int h, m, s;
    if (f.size < 6 || !parseDigits(f.data, 2, &h) || !parseDigits(f.data + 2, 2, &m) ||
        !parseDigits(f.data + 4, 2, &s) || h > 23 || m > 59 || s > 59)
        return false;
    int fraction = 0;
    if (f.size > 6) {
        if (f.data[6] != '.')
            return false;
        int scale = 100;
        for (int i = 7; i < f.size && i < 10; ++i) {
            const unsigned d = unsigned(static_cast<unsigned char>(f.data[i])) - unsigned('0');
            if (d > 9)
                return false;
            fraction += int(d) * scale;
            scale /= 10;
        }
    }
    *ms = ((h * 60 + m) * 60 + s) * 1000 + fraction;
    return true;
}

// NMEA writes "ddmm.mmmm": Qt takes minutes of 60 and more without complaint, a receiver never sends them.
bool minutesInRange(const Field &f)
{
    bool ok = false;
    const double v = QByteArray::fromRawData(f.data, f.size).toDouble(&ok);
    return ok && std::isfinite(v) && v >= 0 && std::fmod(v, 100.0) < 60.0;
}

bool hasValidChecksum(const char *data, int size)
{
    const char *star = static_cast<const char *>(std::memchr(data, '*', size_t(size)));
    if (!star || star + 2 >= data + size)
        return false;
    unsigned sum = 0;
    for (const char *p = data + 1; p < star; ++p)
        sum ^= static_cast<unsigned char>(*p);
    bool ok = false;
    const unsigned given = QByteArray(star + 1, 2).toUInt(&ok, 16);
    return ok && given == sum;
}

// The sentence again with two fields emptied and its checksum made to match.
QByteArray withoutFields(const Field *fields, int count, int blank1, int blank2)
{
    QByteArray out;
    out.reserve(96);
    out += '$';
    for (int i = 0; i < count; ++i) {
        if (i)
            out += ',';
        if (i != blank1 && i != blank2)
            out.append(fields[i].data, fields[i].size);
    }
    quint8 sum = 0;
    for (int i = 1; i < out.size(); ++i)
        sum ^= quint8(out.at(i));
    static const char hex[] = "0123456789ABCDEF";
    out += '*';
    out += hex[sum >> 4];
    out += hex[sum & 15];
    return out;
}

qint32 scaled(double value, int decimals)
{
    const double v = std::round(value * std::pow(10.0, decimals));
    return qint32(std::clamp(v, double(std::numeric_limits<qint32>::min()),
                             double(std::numeric_limits<qint32>::max())));
}

// Degrees in the type 9 layout: whole degrees in bits 16-23, minutes x 1000 below.
qint32 encodeCoordinate(double degrees)
{
    const double a = std::fabs(degrees);
    int whole = int(a);
    qint64 minutes = std::llround((a - whole) * 60000.0);
    if (minutes >= 60000) {
        ++whole;
        minutes -= 60000;
    }
    return qint32((quint32(whole) << 16) | quint32(minutes));
}

double attribute(const QGeoPositionInfo &info, QGeoPositionInfo::Attribute a)
{
    const double v = info.hasAttribute(a) ? info.attribute(a) : qQNaN();
    return std::isfinite(v) ? v : qQNaN();
}

// A sentence that does not give an attribute leaves what an earlier one of the epoch gave.
void takeAttribute(double *target, const QGeoPositionInfo &info, QGeoPositionInfo::Attribute a)
{
    const double v = attribute(info, a);
    if (!std::isnan(v))
        *target = v;
}

enum class Sentence
{
    Other,
    GGA,
    RMC,
    GLL,
    VTG,
    GSA,
    ZDA
};

// The same three letters after the talker that Qt looks at.
Sentence sentenceType(const char *data)
{
    const char *t = data + 3;
    if (!std::memcmp(t, "GGA", 3))
        return Sentence::GGA;
    if (!std::memcmp(t, "RMC", 3))
        return Sentence::RMC;
    if (!std::memcmp(t, "GLL", 3))
        return Sentence::GLL;
    if (!std::memcmp(t, "VTG", 3))
        return Sentence::VTG;
    if (!std::memcmp(t, "GSA", 3))
        return Sentence::GSA;
    if (!std::memcmp(t, "ZDA", 3))
        return Sentence::ZDA;
    return Sentence::Other;
}
// Where a sentence keeps its UTC time, or -1.
int timeField(Sentence type)
{
    switch (type) {
    case Sentence::GGA:
    case Sentence::RMC:
    case Sentence::ZDA:
        return 1;
    case Sentence::GLL:
        return 5;
    default:
        return -1;
    }
}
} // namespace

NMEALogLoader::NMEALogLoader(SensorTable *sensors)
    : LogFileLoader(sensors), m_parser(std::make_unique<NmeaInfoSourceLoader>())
{
}

NMEALogLoader::~NMEALogLoader() = default;

QDate NMEALogLoader::saneDate(const QDate &date, const QDate &today)
{
    if (!date.isValid())
        return QDate();
    QDate d = date;
    if (today.isValid() && d.year() > today.year() + 1)
        d = d.addYears(-100);
    return d < kGpsEpoch ? QDate() : d;
}

void NMEALogLoader::beginEpoch(int tod)
{
    if (m_epoch.open && m_epoch.tod == tod)
        return;
    finishEpoch();
    m_epoch = Epoch();
    m_epoch.open = true;
    m_epoch.tod = tod;
}

void NMEALogLoader::takeAttributes(const QGeoPositionInfo &info, bool rmc)
{
    const int rank = rmc ? 2 : 1;
    if (m_epoch.speedRank < rank) {
        const double speed = attribute(info, QGeoPositionInfo::GroundSpeed);
        const double direction = attribute(info, QGeoPositionInfo::Direction);
        if (!std::isnan(speed) || !std::isnan(direction)) {
            m_epoch.speedRank = rank;
            if (!std::isnan(speed))
                m_epoch.speed = speed;
            if (!std::isnan(direction))
                m_epoch.direction = direction;
        }
    }
    takeAttribute(&m_epoch.magVar, info, QGeoPositionInfo::MagneticVariation);
    takeAttribute(&m_epoch.vSpeed, info, QGeoPositionInfo::VerticalSpeed);
}

bool NMEALogLoader::handleSentence(const char *data, int size)
{
    // The checksum is what tells a damaged sentence from a whole one.
    if (size < 6 || data[0] != '$' || !hasValidChecksum(data, size))
        return false;
    ++m_sentences;
    applySentence(data, size);
    return true;
}

void NMEALogLoader::applySentence(const char *data, int size)
{
    // Satellites in view, proprietary and route sentences carry no fix, but they did tell NMEA from any
    // other text.
    const Sentence type = sentenceType(data);
    if (type == Sentence::Other)
        return;
    Field f[kMaxFields];
    const int n = splitFields(data, size, f);
    const auto at = [&](int i) { return field(f, n, i); };
    QGeoPositionInfo info;
    if (type != Sentence::ZDA) {
        // Qt reads times and dates through the local time zone, which costs a file system look-up per
        // sentence and most of the reading time: it gets the sentence with them emptied, and the times
        // are read here.
        const QByteArray forQt = withoutFields(f, n, timeField(type), type == Sentence::RMC ? 9 : -1);
        bool qtFix = false;
        if (!m_parser->parseSentence(forQt.constData(), forQt.size(), &info, &qtFix))
            return;
    }
    const QGeoCoordinate coordinate = info.coordinate();

    // Takes the sentence's coordinate unless a better sentence of the epoch gave one.
    const auto takeCoordinate = [&](int rank, int latField, int lonField) {
        if (rank <= m_epoch.coordRank || !coordinate.isValid() || !minutesInRange(at(latField)) ||
            !minutesInRange(at(lonField)))
            return;
        m_epoch.coordRank = rank;
        m_epoch.lat = coordinate.latitude();
        m_epoch.lon = coordinate.longitude();
    };

    int tod = 0;
    switch (type) {
    case Sentence::GGA: {
        if (parseTime(at(1), &tod))
            beginEpoch(tod);
        else if (!m_epoch.open)
            return;
        int quality = 0;
        if (!parseInt(at(6), &quality) || quality == 0) {
            m_epoch.noFix = true;
            return;
        }
        takeCoordinate(3, 2, 4);
        if (m_epoch.coordRank == 3 && !std::isnan(coordinate.altitude()))
            m_epoch.alt = coordinate.altitude();
        int satellites = 0;
        if (parseInt(at(7), &satellites))
            m_epoch.satellites = satellites;
        takeAttribute(&m_epoch.hAcc, info, QGeoPositionInfo::HorizontalAccuracy);
        break;
    }
    case Sentence::RMC: {
        if (!parseTime(at(1), &tod))
            return; // an RMC without a time cannot be placed
        beginEpoch(tod);
        if (at(2).size != 1 || at(2).first() != 'A' || at(12).first() == 'N') {
            m_epoch.noFix = true;
            return;
        }
        int dd, mm, yy;
        const Field date = at(9);
        if (date.size == 6 && parseDigits(date.data, 2, &dd) && parseDigits(date.data + 2, 2, &mm) &&
            parseDigits(date.data + 4, 2, &yy) && !m_epoch.date.isValid())
            m_epoch.date = saneDate(QDate(2000 + yy, mm, dd), m_today);
        takeCoordinate(2, 3, 5);
        takeAttributes(info, true);
        break;
    }
    case Sentence::GLL: {
        if (parseTime(at(5), &tod))
            beginEpoch(tod);
        else if (!m_epoch.open)
            return;
        // Old receivers send no status field; only an explicit "V" or mode "N" says no fix.
        if (at(6).first() == 'V' || at(7).first() == 'N') {
            m_epoch.noFix = true;
            return;
        }
        takeCoordinate(1, 1, 3);
        break;
    }
    case Sentence::VTG:
        if (!m_epoch.open || at(9).first() == 'N')
            return;
        takeAttributes(info, false);
        break;
    case Sentence::GSA: {
        if (!m_epoch.open)
            return;
        int mode = 0;
        if (parseInt(at(2), &mode))
            m_epoch.bestGsaMode = std::max(m_epoch.bestGsaMode, mode);
        for (int i = 3; i <= 14; ++i)
            m_epoch.gsaSatellites += at(i).isEmpty() ? 0 : 1;
        takeAttribute(&m_epoch.hAcc, info, QGeoPositionInfo::HorizontalAccuracy);
        takeAttribute(&m_epoch.vAcc, info, QGeoPositionInfo::VerticalAccuracy);
        break;
    }
    case Sentence::ZDA: {
        if (!parseTime(at(1), &tod))
            return;
        beginEpoch(tod);
        int dd, mm, yyyy;
        // A four-digit year is unambiguous: it wins over the RMC's two digits.
        if (parseInt(at(2), &dd) && parseInt(at(3), &mm) && at(4).size == 4 && parseInt(at(4), &yyyy)) {
            const QDate date = saneDate(QDate(yyyy, mm, dd), m_today);
            if (date.isValid())
                m_epoch.date = date;
        }
        break;
    }
    case Sentence::Other:
        break;
    }
}

void NMEALogLoader::finishEpoch()
{
    if (!m_epoch.open)
        return;
    m_epoch.open = false;
    // GSA mode 1 is "no fix" although Qt counts any mode as one; several GSAs (one per constellation)
    // agree on a fix when any of them reports 2D or 3D.
    if (m_epoch.noFix || m_epoch.coordRank == 0 || (m_epoch.bestGsaMode >= 0 && m_epoch.bestGsaMode < 2)) {
        ++m_noFixEpochs;
        return;
    }
    const int tod = m_epoch.tod;
    QDate date = m_epoch.date;
    qint64 delta = 0;
    if (m_haveFix) {
        // Without dates, a time of day far below the last one has passed midnight.
        delta = tod - m_lastTod;
        if (delta < -kHalfDayMs)
            delta += kDayMs;
        bool carry = m_lastDate.isValid();
        if (date.isValid() && m_lastDate.isValid()) {
            const qint64 byDate = m_lastDate.daysTo(date) * kDayMs + (tod - m_lastTod);
            // A date that contradicts the clock (a receiver's garbage after a cold start) is ignored.
            if (byDate > 0 && byDate <= kMaxElapsedMs) {
                delta = byDate;
                carry = false;
            }
        }
        if (delta <= 0 || m_elapsed + delta > kMaxElapsedMs) {
            ++m_backwardEpochs;
            return;
        }
        if (carry)
            date = m_lastDate.addDays((m_lastTod + delta) / kDayMs);
        m_elapsed += delta;
    }
    m_haveFix = true;
    m_lastTod = tod;
    m_lastDate = date;
    if (date.isValid() && !m_start.isValid())
        m_start = QDateTime(date, QTime::fromMSecsSinceStartOfDay(tod), Qt::UTC).addMSecs(-m_elapsed);
    emitEpoch(qint32(kFirstFixMs + m_elapsed), date);
}

void NMEALogLoader::add(Param param, quint32 type, quint32 decimals, qint32 value, qint32 ts)
{
    QVector<TelemetryValue> &values = m_values[param];
    if (values.size() >= kMaxSamplesPerVar)
        return;
    TelemetryValue v;
    v.type = type;
    v.decimals = decimals;
    v.value = value;
    v.timestamp = ts;
    values.append(v);
}

void NMEALogLoader::emitEpoch(qint32 ts, const QDate &date)
{
    const Epoch &e = m_epoch;
    add(Latitude, TelemetryTypes::GpsCoordinate, e.lat < 0 ? 2 : 0, encodeCoordinate(e.lat), ts);
    add(Longitude, TelemetryTypes::GpsCoordinate, e.lon < 0 ? 3 : 1, encodeCoordinate(e.lon), ts);
    if (!std::isnan(e.alt))
        add(Altitude, 12, 1, scaled(e.alt, 1), ts);
    if (!std::isnan(e.speed))
        add(GroundSpeed, 12, 2, scaled(e.speed, 2), ts);
    const int satellites = e.satellites >= 0 ? e.satellites : e.gsaSatellites > 0 ? e.gsaSatellites : -1;
    if (satellites >= 0)
        add(Satellites, 12, 0, satellites, ts);
    const int seconds = e.tod / 1000;
    add(Time, TelemetryTypes::TimeOrDate, 0,
        ((seconds / 3600) << 16) | ((seconds / 60 % 60) << 8) | (seconds % 60), ts);
    if (date.isValid())
        add(Date, TelemetryTypes::TimeOrDate, 1,
            (date.day() << 16) | (date.month() << 8) | (date.year() % 100), ts);
    if (!std::isnan(e.direction))
        add(Direction, 12, 1, scaled(e.direction, 1), ts);
    if (!std::isnan(e.vSpeed))
        add(VerticalSpeed, 12, 2, scaled(e.vSpeed, 2), ts);
    if (!std::isnan(e.hAcc))
        add(HorizontalAccuracy, 12, 1, scaled(e.hAcc, 1), ts);
    if (!std::isnan(e.vAcc))
        add(VerticalAccuracy, 12, 1, scaled(e.vAcc, 1), ts);
    if (!std::isnan(e.magVar))
        add(MagneticVariation, 12, 1, scaled(e.magVar, 1), ts);
}

void NMEALogLoader::describe(TelemetryDataPackage *package)
{
    struct Variable
    {
        Param param;
        QString label;
        const char *unit;
        bool always;
    };
    const Variable variables[] = {
        {Latitude, tr("Latitude"), "°", true},
        {Longitude, tr("Longitude"), "°", true},
        {Altitude, tr("Altitude"), "m", true},
        {GroundSpeed, tr("Ground Speed"), "m/s", false},
        {Satellites, tr("Satellites"), "", true},
        {Time, tr("Time"), "", true},
        {Date, tr("Date"), "", true},
        {Direction, tr("Direction"), "°", false},
        {VerticalSpeed, tr("Vertical Speed"), "m/s", false},
        {HorizontalAccuracy, tr("Horizontal Accuracy"), "m", false},
        {VerticalAccuracy, tr("Vertical Accuracy"), "m", false},
        {MagneticVariation, tr("Magnetic Variation"), "°", false},
    };
    describeDevice(package, kDeviceId, tr("GPS (NMEA)"));
    for (const Variable &v : variables) {
        QVector<TelemetryValue> &values = m_values[v.param];
        if (!v.always && values.isEmpty())
            continue;
        describeParam(package, kDeviceId, v.param, v.label, QString::fromUtf8(v.unit));
        TelemetryVar *var = package->device(kDeviceId)->var(v.param);
        if (var->values().isEmpty())
            var->values() = values;
        else
            var->values() += values;
        values.clear();
    }
    if (m_haveFix)
        package->noteTimestamp(kFirstFixMs);
}

bool NMEALogLoader::load(QIODevice *device, TelemetryDataPackage *package)
{
    if (!device || !device->isOpen() || !package) {
        setError(tr("The input is not open"));
        return false;
    }
    for (QVector<TelemetryValue> &v : m_values)
        v.clear();
    m_epoch = Epoch();
    m_today = QDate::currentDate();
    m_haveFix = false;
    m_lastTod = 0;
    m_lastDate = QDate();
    m_elapsed = 0;
    m_start = QDateTime();
    m_sentences = 0;
    m_noFixEpochs = 0;
    m_backwardEpochs = 0;
    beginPackage(package, ChunkedLineReader::bytesLeft(device));

    // Each "$" starts a sentence, wherever it stands: receivers glue sentences together, and binary
    // frames or terminal escapes end up in front of them. A line is damaged when a sentence in it fails
    // its checksum, or when it holds no sentence at all; blank lines, comments ("#") and encapsulated
    // sentences ("!", AIS and the like) are neither read nor damaged. A buffer without a line end is not
    // NMEA; its sentences (if any) are taken as they stand. The last line, cut off, cannot check out: it
    // is the truncation.
    const auto processLine = [this](const ChunkedLineReader::Line &line) {
        const char *p = line.begin;
        const char *end = line.end;
        bool accepted = false;
        bool rejected = false;
        const char *start = static_cast<const char *>(std::memchr(p, '$', size_t(end - p)));
        const char *text = std::find_if(p, end, [](char c) { return c != ' ' && (c < '\t' || c > '\r'); });
        const bool aside = text == end || *text == '#' || *text == '!';
        if (!start && aside)
            return int(ChunkedLineReader::Ignored);
        while (start) {
            const char *next =
                static_cast<const char *>(std::memchr(start + 1, '$', size_t(end - start - 1)));
            const char *stop = next ? next : end;
            const char *star = static_cast<const char *>(std::memchr(start, '*', size_t(stop - start)));
            if (star && stop - star > 3)
                stop = star + 3;
            while (stop > start && static_cast<unsigned char>(stop[-1]) <= ' ')
                --stop;
            // NMEA allows 82 characters; anything far longer is junk.
            if (stop - start <= 255 && handleSentence(start, int(stop - start)))
                accepted = true;
            else
                rejected = true;
            start = next;
        }
        const bool damaged = !(accepted && !rejected) && !aside;
        return (accepted ? ChunkedLineReader::Read : 0) | (damaged ? ChunkedLineReader::Damaged : 0);
    };
    ChunkedLineReader reader(ChunkedLineReader::LongLines::Split, ChunkedLineReader::LastLine::CutIfDamaged);
    reader.setProgressHandler([this](qint64 done, qint64 total) { return reportProgress(done, total); });
    bool ok = reader.read(device, processLine);
    if (!ok && !reader.errorString().isEmpty())
        setError(reader.errorString());
    report() = reader.report();
    if (ok) {
        finishEpoch();
        if (m_sentences == 0) {
            setError(tr("No NMEA sentences found: this is not a GPS recording"));
            ok = false;
        } else {
            describe(package);
            if (m_start.isValid())
                package->setRecordingDate(m_start.toLocalTime());
        }
    }
    for (QVector<TelemetryValue> &v : m_values)
        v.clear();
    finishPackage(package);
    return ok;
}
