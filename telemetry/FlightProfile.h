#pragma once

#include <QDate>
#include <QVector>
#include <QtGlobal>

#include <vector>

// splitmix64: tiny, and the same numbers on every platform (the standard distributions are not), so a
// seed makes the same flight everywhere.
class FlightRandom
{
public:
    explicit FlightRandom(quint64 seed) : m_state(seed) {}
    quint64 next()
    {
        quint64 z = (m_state += 0x9E3779B97F4A7C15ULL);
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ULL;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EBULL;
        return z ^ (z >> 31);
    }
    double uniform() { return double(next() >> 11) * (1.0 / 9007199254740992.0); }
    double between(double a, double b) { return a + (b - a) * uniform(); }
    int below(int n) { return int(next() % quint64(n)); }

private:
    quint64 m_state;
};

// A GPS coordinate as devices send it: whole degrees in bits 16..23, thousandths of a minute below; the
// hemisphere travels in the value's flags.
qint32 packedCoordinate(double degrees);

// One flight of an electric model, as a pure function of time: parked on the field, take-off run, climb,
// circuits around the field, descent, landing back where it started, parked again. The phases scale with
// the length of the flight (with sane minimums); the seed picks the field, the model, its pack and the
// weather. Position, speed and course, altitude and climb, current and used capacity all come from the
// same curves, so they agree with one another as a real model's sensors do. Sensor noise and the
// encoding into telemetry values are left to the callers.
class FlightProfile
{
public:
    enum Phase : quint8
    {
        Parked,
        TakeOffRun,
        Climb,
        Cruise,
        Descent,
        Rollout,
        Landed,
        PhaseCount
    };

    struct Site
    {
        double latitude = 0;  // degrees, north positive
        double longitude = 0; // degrees, east positive
        double elevation = 0; // m above sea level
    };

    enum EventKind : quint8
    {
        ControlCheck,
        MotorStart,
        LiftOff,
        SignalLost,
        CapacityReached,
        LowCell,
        Touchdown
    };

    struct Event
    {
        double time = 0; // s
        EventKind kind = ControlCheck;
    };

    struct State
    {
        Phase phase = Parked;
        double north = 0; // m from the start
        double east = 0;
        double latitude = 0;
        double longitude = 0;
        double altitude = 0;    // m above the field
        double climb = 0;       // m/s, the derivative of the altitude
        double groundSpeed = 0; // m/s
        double course = 0;      // degrees clockwise from north, [0, 360)
        double airSpeed = 0;    // m/s through the air
        double pressure = 0;    // kPa at the model
        double current = 0;     // A from the pack
        double used = 0;        // mAh taken from the pack: the integral of the current
        double packVoltage = 0; // V under load
        double lowestCell = 0;  // V
        double receiverVoltage = 0;
        double signal = 0;  // dB at the receiver
        double quality = 0; // % of frames received
        int satellites = 0;
        double motorTemperature = 0; // °C
        double escTemperature = 0;
        double receiverTemperature = 0;
    };

    // A flight of this many seconds at the seed's field.
    FlightProfile(double seconds, quint64 seed);
    // The same flight flown from another field.
    FlightProfile(double seconds, quint64 seed, const Site &site);

    // The model at t seconds from the start; t is held to [0, duration].
    State at(double t) const;

    double duration() const { return m_duration; }
    double phaseStart(Phase p) const { return m_start[p]; }
    const Site &site() const { return m_site; }
    int cells() const { return m_cells; }
    double packCapacity() const { return m_packCapacity; } // mAh
    double alarmCapacity() const { return 0.8 * m_packCapacity; }
    static constexpr double kLowCellVolts = 3.5;
    // Seconds after midnight, local time, when the flight starts: an afternoon.
    int startOfDay() const { return m_startOfDay; }
    QDate date() const { return m_date; }
    // What a pilot would hear about during the flight, in time order.
    const QVector<Event> &events() const { return m_events; }

private:
    void plan(double seconds);
    double distanceAt(double t) const;
    double speedAt(double t) const;
    double altitudeAt(double t, double *climb) const;
    double currentAt(double t) const;
    double integral(double from, double to) const;
    void pathPoint(double s, double *north, double *east, double *course, bool *turning) const;
    double ocv(double charge) const;
    void integrate();
    int satellitesAt(double t) const;
    bool signalLostAt(double t) const;
    int phaseAt(double t) const;

    double m_duration = 0;
    double m_start[PhaseCount + 1] = {};
    Site m_site;
    // Speeds in m/s: lift-off, cruise (with a slow surge of m_surge), approach.
    double m_liftOff = 12;
    double m_cruise = 22;
    double m_surge = 0.12;
    int m_surges = 1;
    double m_approach = 13;
    double m_cruiseAltitude = 100;
    double m_swell = 10; // m of gentle climbs and sinks in the cruise
    int m_swells = 1;
    // The circuit: a racetrack whose straight starts at the take-off point.
    double m_runway = 0; // heading of the straights, radians clockwise from north
    double m_side = 1;   // 1: left-hand circuits, -1: right-hand
    double m_straight = 250;
    double m_radius = 80;
    double m_windNorth = 0;
    double m_windEast = 0;
    double m_seaLevelPressure = 101.325;
    // Power system.
    int m_cells = 3;
    double m_packCapacity = 3300;
    double m_cellResistance = 0.005;
    double m_charge = 1; // share of the pack full at the start
    double m_imbalance = 0.01;
    double m_cruiseCurrent = 20;
    double m_idleCurrent = 0.3;
    double m_receiverBase = 7.4;
    double m_ambient = 20;
    int m_startOfDay = 14 * 3600;
    QDate m_date;
    double m_lossAt = -1; // a short loss of the radio link, if the flight has one
    double m_lossFor = 0;
    struct SatelliteStep
    {
        double time;
        int count;
    };
    std::vector<SatelliteStep> m_satellites;
    struct Dropout
    {
        double from;
        double to;
        int lost;
    };
    std::vector<Dropout> m_dropouts;
    // Running integrals on a fine grid: used capacity and the two temperatures that follow the current.
    double m_step = 0.1;
    std::vector<double> m_used;
    std::vector<double> m_motor;
    std::vector<double> m_esc;
    QVector<Event> m_events;
};
