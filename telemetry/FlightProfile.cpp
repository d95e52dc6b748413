#include "telemetry/FlightProfile.h"

#include <algorithm>
#include <cmath>

namespace {
constexpr double kPi = 3.14159265358979323846;
constexpr double kEarthRadius = 6371000; // m, the mean sphere
constexpr double kMahPerAmpSecond = 1 / 3.6;

// Smooth step with level ends: altitude changes start and end without a jolt in the climb rate.
double smooth(double x)
{
    return x * x * (3 - 2 * x);
}

double smoothSlope(double x)
{
    return 6 * x * (1 - x);
}

FlightProfile::Site seededSite(quint64 seed)
{
    FlightRandom rng(seed ^ 0xA5A5F1E1D5EEDULL);
    FlightProfile::Site s;
    s.latitude = rng.between(49.0, 50.6);
    s.longitude = rng.between(13.2, 18.4);
    s.elevation = rng.between(180, 620);
    return s;
}
} // namespace

FlightProfile::FlightProfile(double seconds, quint64 seed) : FlightProfile(seconds, seed, seededSite(seed)) {}

FlightProfile::FlightProfile(double seconds, quint64 seed, const Site &site) : m_site(site)
{
    FlightRandom rng(seed * 0x2545F4914F6CDD1DULL + 0x3C6EF372FE94F82BULL);
    m_liftOff = rng.between(11, 14);
    m_cruise = rng.between(19, 27);
    m_approach = m_liftOff + rng.between(0.5, 2);
    m_surge = rng.between(0.06, 0.12);
    m_cruiseAltitude = rng.between(70, 140);
    m_runway = rng.between(0, 2 * kPi);
    m_side = rng.below(2) ? 1 : -1;
    m_straight = rng.between(180, 320);
    m_radius = rng.between(55, 95);
    const double wind = rng.between(0, 4);
    const double windFrom = rng.between(0, 2 * kPi);
    m_windNorth = -wind * std::cos(windFrom);
    m_windEast = -wind * std::sin(windFrom);
    m_seaLevelPressure = rng.between(100.4, 102.6);
    const int cells[] = {3, 4, 6};
    m_cells = cells[rng.below(3)];
    const double packs[] = {2200, 3300, 4000, 5000};
    m_packCapacity = packs[rng.below(4)];
    m_cellResistance = rng.between(0.006, 0.01) * 2200 / m_packCapacity;
    m_charge = rng.between(0.97, 1.0);
    m_imbalance = rng.between(0.004, 0.02);
    m_idleCurrent = rng.between(0.25, 0.5);
    const double receivers[] = {6.0, 7.4, 8.2};
    m_receiverBase = receivers[rng.below(3)];
    m_ambient = rng.between(16, 29);
    m_startOfDay = 13 * 3600 + rng.below(3 * 3600 + 1800);
    m_date = QDate(2026, 5 + rng.below(5), 1 + rng.below(28));

    plan(seconds);

    // Pick the cruise current so that the flight uses about 85 % of the pack, within what a model of this
    // kind draws; a long flight gets a bigger pack rather than an empty one.
    m_cruiseCurrent = 0;
    const double idleUsed = integral(0, m_duration);
    m_cruiseCurrent = 1;
    const double perAmp = integral(0, m_duration) - idleUsed;
    const double wanted = perAmp > 0 ? (0.85 * m_packCapacity - idleUsed) / perAmp : 30;
    m_cruiseCurrent = std::clamp(wanted, 6.0, 32.0);
    const double used = idleUsed + perAmp * m_cruiseCurrent;
    if (used > 0.85 * m_packCapacity) {
        m_packCapacity = std::ceil(used / 0.85 / 100) * 100;
        m_cellResistance = 0.008 * 2200 / m_packCapacity;
    }

    // A short loss of the radio link somewhere far out, in flights long enough to have one.
    const double cruiseLength = m_start[Descent] - m_start[Cruise];
    if (cruiseLength >= 60) {
        m_lossAt = m_start[Cruise] + cruiseLength * rng.between(0.25, 0.75);
        m_lossFor = rng.between(1.2, 3.5);
    }

    // Satellites: the receiver gathers them while parked, then the count drifts by one now and then.
    int count = 8;
    double t = 0;
    const int settled = 12 + rng.below(4);
    while (count < settled) {
        m_satellites.push_back({t, count});
        t += rng.between(1, 4);
        ++count;
    }
    while (t <= m_duration) {
        m_satellites.push_back({t, count});
        t += rng.between(20, 70);
        count = std::clamp(count + (rng.below(2) ? 1 : -1), 10, 16);
    }
    // A few dropouts in the air, when the wing shades the antenna in a turn.
    const int dropouts = std::min(5, int(m_duration / 200));
    for (int i = 0; i < dropouts; ++i) {
        const double from = rng.between(m_start[Climb], m_start[Rollout]);
        m_dropouts.push_back({from, from + rng.between(2, 6), 3 + rng.below(3)});
    }

    integrate();

    const auto event = [this](double time, EventKind kind) {
        if (time >= 0 && time < m_duration)
            m_events.append({time, kind});
    };
    event(m_start[TakeOffRun] * 0.5, ControlCheck);
    event(m_start[TakeOffRun], MotorStart);
    event(m_start[Climb], LiftOff);
    if (m_lossAt >= 0)
        event(m_lossAt, SignalLost);
    for (size_t i = 0; i < m_used.size(); ++i) {
        if (m_used[i] >= alarmCapacity()) {
            event(double(i) * m_step, CapacityReached);
            break;
        }
    }
    for (double x = m_start[TakeOffRun]; x < m_start[Rollout]; x += 0.5) {
        if (at(x).lowestCell < kLowCellVolts) {
            event(x, LowCell);
            break;
        }
    }
    event(m_start[Rollout], Touchdown);
    std::stable_sort(m_events.begin(), m_events.end(),
                     [](const Event &a, const Event &b) { return a.time < b.time; });
}

void FlightProfile::plan(double seconds)
{
    m_duration = std::max(0.0, seconds);
    // Share of the flight, shortest and longest length in seconds; the cruise takes what is left.
    struct Span
    {
        double share, least, most;
    };
    const Span spans[PhaseCount] = {{0.05, 1, 40}, {0.02, 1, 8}, {0.12, 2, 90}, {0, 1, 0},
                                    {0.12, 2, 90}, {0.02, 1, 8}, {0.03, 1, 30}};
    double length[PhaseCount];
    double others = 0;
    for (int p = 0; p < PhaseCount; ++p) {
        length[p] = p == Cruise ? 0 : std::clamp(spans[p].share * m_duration, spans[p].least, spans[p].most);
        others += length[p];
    }
    length[Cruise] = m_duration - others;
    if (length[Cruise] < spans[Cruise].least) {
        // Too short for the minimums: every phase shrinks alike.
        const double factor = m_duration / (others + spans[Cruise].least);
        for (int p = 0; p < PhaseCount; ++p)
            length[p] = (p == Cruise ? spans[Cruise].least : length[p]) * factor;
    }
    m_start[0] = 0;
    for (int p = 0; p < PhaseCount; ++p)
        m_start[p + 1] = m_start[p] + length[p];
    m_start[PhaseCount] = m_duration;

    const double cruiseLength = length[Cruise];
    m_surges = std::max(1, int(std::lround(cruiseLength / 45)));
    // Climb and sink gently: at most 3.5 m/s up and 3 m/s down at the steepest point of the smooth step.
    m_cruiseAltitude = std::min({m_cruiseAltitude, length[Climb] * 3.5 / 1.5, length[Descent] * 3.0 / 1.5});
    m_swells = std::max(1, int(std::lround(cruiseLength / 90)));
    m_swell = std::min(0.12 * m_cruiseAltitude, cruiseLength > 0 ? 1.5 * cruiseLength / (kPi * m_swells) : 0);

    // The circuit: laps of a racetrack sized so that the model lands where it took off.
    const double total = distanceAt(m_duration);
    const double lap = 2 * m_straight + 2 * kPi * m_radius;
    const int laps = std::max(1, int(std::lround(total / lap)));
    const double scale = total > 0 ? total / (laps * lap) : 1;
    m_straight *= scale;
    m_radius *= scale;
}

int FlightProfile::phaseAt(double t) const
{
    int p = Parked;
    for (int q = Parked; q < PhaseCount; ++q) {
        if (m_start[q + 1] > m_start[q] && t >= m_start[q])
            p = q;
    }
    return p;
}

double FlightProfile::speedAt(double t) const
{
    const int p = phaseAt(t);
    const double length = m_start[p + 1] - m_start[p];
    const double x = length > 0 ? std::clamp((t - m_start[p]) / length, 0.0, 1.0) : 1;
    switch (p) {
    case TakeOffRun:
        return m_liftOff * x;
    case Climb:
        return m_liftOff + (m_cruise - m_liftOff) * x;
    case Cruise:
        return m_cruise * (1 + m_surge * std::sin(2 * kPi * m_surges * x));
    case Descent:
        return m_cruise + (m_approach - m_cruise) * x;
    case Rollout:
        return m_approach * (1 - x);
    default:
        return 0;
    }
}

// The integral of speedAt from the start.
double FlightProfile::distanceAt(double t) const
{
    double s = 0;
    for (int p = TakeOffRun; p <= Rollout; ++p) {
        const double length = m_start[p + 1] - m_start[p];
        if (length <= 0 || t <= m_start[p])
            continue;
        const double x = std::min(1.0, (t - m_start[p]) / length);
        switch (p) {
        case TakeOffRun:
            s += length * m_liftOff * x * x / 2;
            break;
        case Climb:
            s += length * (m_liftOff * x + (m_cruise - m_liftOff) * x * x / 2);
            break;
        case Cruise:
            s += length * m_cruise *
                 (x + m_surge * (1 - std::cos(2 * kPi * m_surges * x)) / (2 * kPi * m_surges));
            break;
        case Descent:
            s += length * (m_cruise * x + (m_approach - m_cruise) * x * x / 2);
            break;
        case Rollout:
            s += length * m_approach * (x - x * x / 2);
            break;
        }
    }
    return s;
}

double FlightProfile::altitudeAt(double t, double *climb) const
{
    const int p = phaseAt(t);
    const double length = m_start[p + 1] - m_start[p];
    const double x = length > 0 ? std::clamp((t - m_start[p]) / length, 0.0, 1.0) : 1;
    *climb = 0;
    switch (p) {
    case Climb:
        *climb = m_cruiseAltitude * smoothSlope(x) / length;
        return m_cruiseAltitude * smooth(x);
    case Cruise: {
        const double w = 2 * kPi * m_swells;
        *climb = m_swell * w * std::sin(w * x) / (2 * length);
        return m_cruiseAltitude + m_swell * (1 - std::cos(w * x)) / 2;
    }
    case Descent:
        *climb = -m_cruiseAltitude * smoothSlope(x) / length;
        return m_cruiseAltitude * (1 - smooth(x));
    default:
        return 0;
    }
}

double FlightProfile::currentAt(double t) const
{
    const int p = phaseAt(t);
    const double length = m_start[p + 1] - m_start[p];
    const double x = length > 0 ? std::clamp((t - m_start[p]) / length, 0.0, 1.0) : 1;
    const double full = 1.5 * m_cruiseCurrent;
    switch (p) {
    case TakeOffRun:
        return m_idleCurrent + (full - m_idleCurrent) * std::min(1.0, x / 0.3);
    case Climb:
        return full + (1.15 * m_cruiseCurrent - full) * x;
    case Cruise:
        // More throttle, more speed: the current surges with the speed.
        return m_cruiseCurrent * (1 + 2.5 * m_surge * std::sin(2 * kPi * m_surges * x));
    case Descent:
        return 0.25 * m_cruiseCurrent + m_idleCurrent;
    case Rollout:
        return 1.5 * m_idleCurrent;
    default:
        return m_idleCurrent;
    }
}

// mAh drawn between two times, by the trapezoid rule on a fine grid.
double FlightProfile::integral(double from, double to) const
{
    const int steps = std::max(1, int(std::ceil((to - from) / 0.1)));
    const double h = (to - from) / steps;
    double sum = 0;
    double previous = currentAt(from);
    for (int i = 1; i <= steps; ++i) {
        const double next = currentAt(from + i * h);
        sum += (previous + next) * h / 2;
        previous = next;
    }
    return sum * kMahPerAmpSecond;
}

void FlightProfile::integrate()
{
    m_step = std::max(0.1, m_duration / 200000);
    const size_t nodes = size_t(std::ceil(m_duration / m_step)) + 2;
    m_used.resize(nodes);
    m_motor.resize(nodes);
    m_esc.resize(nodes);
    m_used[0] = 0;
    m_motor[0] = m_esc[0] = m_ambient;
    double previous = currentAt(0);
    const double motorDecay = std::exp(-m_step / 80);
    const double escDecay = std::exp(-m_step / 50);
    for (size_t i = 1; i < nodes; ++i) {
        const double next = currentAt(double(i) * m_step);
        const double mean = (previous + next) / 2;
        m_used[i] = m_used[i - 1] + mean * m_step * kMahPerAmpSecond;
        // Each temperature heads for the level its current holds it at, with its own time constant.
        const double motorLevel = m_ambient + 1.3 * mean;
        const double escLevel = m_ambient + 0.7 * mean;
        m_motor[i] = motorLevel + (m_motor[i - 1] - motorLevel) * motorDecay;
        m_esc[i] = escLevel + (m_esc[i - 1] - escLevel) * escDecay;
        previous = next;
    }
}

// The racetrack, from the take-off point in the middle of one straight: half that straight, a turn, the
// other straight, a turn, and the first half again back to the start. Local x runs along the runway,
// y to the side the circuits turn to.
void FlightProfile::pathPoint(double s, double *north, double *east, double *course, bool *turning) const
{
    const double lap = 2 * m_straight + 2 * kPi * m_radius;
    double u = lap > 0 ? std::fmod(std::max(0.0, s), lap) : 0;
    const double half = m_straight / 2;
    const double turn = kPi * m_radius;
    double x = 0;
    double y = 0;
    double a = 0; // direction of travel, radians towards the turning side from the runway heading
    *turning = false;
    if (u < half) {
        x = u;
    } else if ((u -= half) < turn) {
        a = u / m_radius;
        x = half + m_radius * std::sin(a);
        y = m_radius - m_radius * std::cos(a);
        *turning = true;
    } else if ((u -= turn) < m_straight) {
        x = half - u;
        y = 2 * m_radius;
        a = kPi;
    } else if ((u -= m_straight) < turn) {
        a = u / m_radius;
        x = -half - m_radius * std::sin(a);
        y = m_radius + m_radius * std::cos(a);
        a += kPi;
        *turning = true;
    } else {
        x = -half + (u - turn);
        a = 2 * kPi;
    }
    // The turning side is left of the runway heading for left-hand circuits.
    const double h = m_runway;
    const double side = m_side;
    *north = x * std::cos(h) + side * y * std::sin(h);
    *east = x * std::sin(h) - side * y * std::cos(h);
    double c = std::fmod((h - side * a) * 180 / kPi, 360.0);
    if (c < 0)
        c += 360;
    *course = c;
}

double FlightProfile::ocv(double charge) const
{
    // Open-circuit voltage of one lithium-polymer cell against its charge: 4.2 V full, a long plateau
    // around 3.8 V, and the knee below 20 %.
    const double c = std::clamp(charge, 0.0, 1.0);
    return 3.55 + 0.65 * c - 0.25 * std::pow(1 - c, 6);
}

int FlightProfile::satellitesAt(double t) const
{
    int count = m_satellites.empty() ? 8 : m_satellites.front().count;
    for (const SatelliteStep &s : m_satellites) {
        if (s.time > t)
            break;
        count = s.count;
    }
    for (const Dropout &d : m_dropouts) {
        if (t >= d.from && t < d.to)
            count = std::max(8, count - d.lost);
    }
    return count;
}

bool FlightProfile::signalLostAt(double t) const
{
    return m_lossAt >= 0 && t >= m_lossAt && t < m_lossAt + m_lossFor;
}

FlightProfile::State FlightProfile::at(double t) const
{
    t = std::clamp(t, 0.0, m_duration);
    State st;
    st.phase = Phase(phaseAt(t));
    bool turning = false;
    pathPoint(distanceAt(t), &st.north, &st.east, &st.course, &turning);
    const double lat0 = m_site.latitude * kPi / 180;
    st.latitude = m_site.latitude + st.north / kEarthRadius * 180 / kPi;
    st.longitude = m_site.longitude + st.east / (kEarthRadius * std::cos(lat0)) * 180 / kPi;
    st.altitude = altitudeAt(t, &st.climb);
    st.groundSpeed = speedAt(t);
    const double c = st.course * kPi / 180;
    st.airSpeed =
        std::hypot(st.groundSpeed * std::cos(c) - m_windNorth, st.groundSpeed * std::sin(c) - m_windEast);
    st.pressure = m_seaLevelPressure * std::pow(1 - 2.25577e-5 * (m_site.elevation + st.altitude), 5.25588);

    st.current = currentAt(t);
    const double node = t / m_step;
    const size_t i = std::min(size_t(node), m_used.size() - 2);
    const double f = node - double(i);
    const auto lerp = [i, f](const std::vector<double> &v) { return v[i] + (v[i + 1] - v[i]) * f; };
    st.used = lerp(m_used);
    st.motorTemperature = lerp(m_motor);
    st.escTemperature = lerp(m_esc);
    const double charge = m_charge - st.used / m_packCapacity;
    st.packVoltage = m_cells * (ocv(charge) - st.current * m_cellResistance);
    st.lowestCell = st.packVoltage / m_cells - m_imbalance;

    const bool airborne = st.phase >= Climb && st.phase <= Descent;
    // Servos under load pull the receiver supply down a little, most in the turns.
    st.receiverVoltage = m_receiverBase - (airborne ? 0.12 : 0.02) - (airborne && turning ? 0.15 : 0);
    st.receiverTemperature = m_ambient + 6 * (1 - std::exp(-t / 600));

    const double range = std::sqrt(st.north * st.north + st.east * st.east + st.altitude * st.altitude);
    const bool lost = signalLostAt(t);
    st.signal = lost ? -99 : -30 - 20 * std::log10(1 + range / 25);
    st.quality = lost ? 0 : std::clamp(100 - 1.6 * std::max(0.0, -45 - st.signal), 0.0, 100.0);
    st.satellites = satellitesAt(t);
    return st;
}

qint32 packedCoordinate(double degrees)
{
    const double a = std::fabs(degrees);
    int whole = int(a);
    int milliMinutes = int(std::lround((a - whole) * 60000));
    if (milliMinutes >= 60000) {
        ++whole;
        milliMinutes -= 60000;
    }
    return qint32((quint32(whole) << 16) | quint32(milliMinutes));
}
