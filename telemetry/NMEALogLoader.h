#pragma once

#include "telemetry/LogFileLoader.h"

#include <QDate>
#include <QDateTime>

#include <array>
#include <limits>
#include <memory>

class NmeaInfoSourceLoader;
class QGeoPositionInfo;

// GPS recordings in NMEA 0183 (".nmea", ".txt"): one GPS device whose samples are the receiver's fixes.
// Sentences are grouped into epochs by their UTC time; an epoch becomes one sample of each variable only
// when nothing in it says "no fix". Times are milliseconds from the first fix.
class NMEALogLoader : public LogFileLoader
{
    Q_DECLARE_TR_FUNCTIONS(NMEALogLoader)
public:
    // Low half: a product number no bus device uses; the sensor table keeps the user's units for it.
    static constexpr quint32 kDeviceId = 0xFFF0u | (1u << 16);

    // The variables of the GPS device. 1 to 7 are laid out like a bus GPS module.
    enum Param : quint32
    {
        Latitude = 1,       // type 9, minutes x 1000; decimals bit 1 for south
        Longitude = 2,      // type 9; decimals bit 0, bit 1 for west
        Altitude = 3,       // "m" above mean sea level, type 12, 0.1 m
        GroundSpeed = 4,    // "m/s", type 12, 0.01 m/s
        Satellites = 5,     // satellites used, type 12
        Time = 6,           // UTC time of day, type 5
        Date = 7,           // UTC date, type 5 with decimals bit 0
        Direction = 8,      // course over ground "°", type 12, 0.1°
        VerticalSpeed = 9,  // "m/s", type 12, 0.01 m/s
        HorizontalAccuracy, // "m", type 12, 0.1 m (2 x HDOP x UERE)
        VerticalAccuracy,   // "m", type 12, 0.1 m (2 x VDOP x UERE)
        MagneticVariation,  // "°", type 12, 0.1°, west negative
        ParamCount
    };
    // The first fix lies here rather than at 0, which a native log reserves for description lines.
    static constexpr qint32 kFirstFixMs = 1;

    explicit NMEALogLoader(SensorTable *sensors = nullptr);
    ~NMEALogLoader() override;

    // False when the device is not open, on a read error, when cancelled, or when the input holds no
    // NMEA sentence at all (a .txt that is not a GPS recording). A recording without a fix loads empty.
    bool load(QIODevice *device, TelemetryDataPackage *package) override;

    // Epochs of the last load that were dropped for saying "no fix", and those dropped for going back in
    // time (a receiver's clock jumping after a cold start).
    int noFixEpochs() const { return m_noFixEpochs; }
    int backwardEpochs() const { return m_backwardEpochs; }

    // A two-digit-year date as Qt reads it (20yy) moved into the century that is not in the future;
    // an invalid date for anything before GPS time began.
    static QDate saneDate(const QDate &date, const QDate &today);

private:
    static constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

    // What the sentences of one UTC time said.
    struct Epoch
    {
        bool open = false;
        int tod = 0; // UTC ms since midnight
        QDate date;
        bool noFix = false;
        int bestGsaMode = -1; // -1: no GSA in this epoch
        int coordRank = 0;    // 0 none, 1 GLL, 2 RMC, 3 GGA
        double lat = 0;
        double lon = 0;
        double alt = kNaN;
        double speed = kNaN;
        int speedRank = 0; // 1 VTG, 2 RMC
        double direction = kNaN;
        double magVar = kNaN;
        double hAcc = kNaN;
        double vAcc = kNaN;
        double vSpeed = kNaN;
        int satellites = -1;
        int gsaSatellites = 0;
    };

    // False when the bytes are not a sentence with a valid checksum.
    bool handleSentence(const char *data, int size);
    void applySentence(const char *data, int size);
    void beginEpoch(int tod);
    void finishEpoch();
    void emitEpoch(qint32 ts, const QDate &date);
    void add(Param param, quint32 type, quint32 decimals, qint32 value, qint32 ts);
    void takeAttributes(const QGeoPositionInfo &info, bool rmc);
    void describe(TelemetryDataPackage *package);

    std::unique_ptr<NmeaInfoSourceLoader> m_parser;
    std::array<QVector<TelemetryValue>, ParamCount> m_values;
    Epoch m_epoch;
    QDate m_today;
    // The last fix kept, for the time line.
    bool m_haveFix = false;
    int m_lastTod = 0;
    QDate m_lastDate;
    qint64 m_elapsed = 0;
    QDateTime m_start; // UTC date and time of the first fix, once a date is known
    qint64 m_sentences = 0;
    int m_noFixEpochs = 0;
    int m_backwardEpochs = 0;
};
