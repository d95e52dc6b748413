#include "cli/ParamsCommand.h"

#include "cli/LiveCommands.h"
#include "link/DeviceDefinitions.h"
#include "link/DeviceSettingsFile.h"
#include "link/LinkMetaTypes.h"
#include "link/SerialLink.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QTimer>

#include <cmath>
#include <functional>

namespace {
enum class Action
{
    List,
    Read,
    Set,
    Export,
    Import,
    Raw
};

struct Options
{
    QString port;
    int baud = 125000;
    int seconds = 8; // enough for a device that answers broadcasts only now and then
    QString device;
    QString definitions;
    Action action = Action::List;
    bool actionGiven = false;
    QStringList items; // names to read, NAME=VALUE pairs, raw ADDR:SIZE[=VALUE]
    QString file;
    bool dryRun = false;
};

const char kUsage[] = "usage: vexo-log params --port PORT --device ID [--baud 125000|250000] [--seconds N]\n"
                      "         [--definitions Devices.bin]\n"
                      "         [--list | --read [NAME|ADDR ...] | --set NAME=VALUE ... | --export FILE |\n"
                      "          --import FILE [--dry-run] | --raw ADDR:SIZE[=VALUE] ...]\n";

int usage(std::FILE *err, const QString &message)
{
    std::fprintf(err, "vexo-log: params: %s\n%s", message.toUtf8().constData(), kUsage);
    return 2;
}

void print(std::FILE *f, const QString &text)
{
    std::fputs(text.toUtf8().constData(), f);
    std::fputc('\n', f);
}

bool setAction(Options *o, Action a)
{
    if (o->actionGiven && o->action != a)
        return false;
    o->action = a;
    o->actionGiven = true;
    return true;
}

int parse(const QStringList &args, Options *o, std::FILE *err)
{
    for (int i = 0; i < args.size(); ++i) {
        const QString &key = args.at(i);
        const auto value = [&](QString *into) {
            if (i + 1 >= args.size() || args.at(i + 1).startsWith(QLatin1String("--")))
                return false;
            *into = args.at(++i);
            return true;
        };
        QString v;
        bool ok = true;
        if (key == QLatin1String("--port")) {
            ok = value(&o->port);
        } else if (key == QLatin1String("--device")) {
            ok = value(&o->device);
        } else if (key == QLatin1String("--definitions")) {
            ok = value(&o->definitions);
        } else if (key == QLatin1String("--baud")) {
            ok = value(&v) && (v == QLatin1String("125000") || v == QLatin1String("250000"));
            o->baud = v.toInt();
        } else if (key == QLatin1String("--seconds")) {
            ok = value(&v);
            o->seconds = v.toInt(&ok);
            ok = ok && o->seconds > 0;
        } else if (key == QLatin1String("--list")) {
            ok = setAction(o, Action::List);
        } else if (key == QLatin1String("--dry-run")) {
            o->dryRun = true;
        } else if (key == QLatin1String("--export") || key == QLatin1String("--import")) {
            ok = setAction(o, key == QLatin1String("--export") ? Action::Export : Action::Import) &&
                 value(&o->file);
        } else if (key == QLatin1String("--read") || key == QLatin1String("--set") ||
                   key == QLatin1String("--raw")) {
            const Action a = key == QLatin1String("--read")  ? Action::Read
                             : key == QLatin1String("--set") ? Action::Set
                                                             : Action::Raw;
            ok = setAction(o, a);
            while (ok && i + 1 < args.size() && !args.at(i + 1).startsWith(QLatin1String("--")))
                o->items.append(args.at(++i));
            if (a != Action::Read && o->items.isEmpty())
                return usage(err, QStringLiteral("%1 needs at least one value").arg(key));
        } else {
            return usage(err, QStringLiteral("unknown option %1").arg(key));
        }
        if (!ok)
            return usage(err, QStringLiteral("bad or missing value for %1").arg(key));
    }
    if (o->port.isEmpty() || o->device.isEmpty())
        return usage(err, QStringLiteral("--port and --device are required"));
    if (o->dryRun && o->action != Action::Import)
        return usage(err, QStringLiteral("--dry-run goes with --import"));
    return 0;
}

// Serves events until the condition holds or the time is up.
bool waitFor(const std::function<bool()> &done, int timeoutMs)
{
    QElapsedTimer t;
    t.start();
    while (!done()) {
        if (t.elapsed() > timeoutMs)
            return false;
        QEventLoop loop;
        QTimer::singleShot(10, &loop, &QEventLoop::quit);
        loop.exec();
    }
    return true;
}

// A device named by its identifier (hex, with or without 0x) or by its name.
bool matches(const Device &d, const QString &wanted)
{
    QString hex = wanted;
    if (hex.startsWith(QLatin1String("0x"), Qt::CaseInsensitive))
        hex = hex.mid(2);
    bool ok = false;
    const quint32 id = hex.toUInt(&ok, 16);
    if (ok && d.identifier == id)
        return true;
    return d.identifier != 0 && d.name.compare(wanted, Qt::CaseInsensitive) == 0;
}

// "0x0019", "25" or "0x19": a register address.
bool parseAddress(const QString &text, quint16 *address)
{
    bool ok = false;
    const uint v = text.startsWith(QLatin1String("0x"), Qt::CaseInsensitive) ? text.mid(2).toUInt(&ok, 16)
                                                                             : text.toUInt(&ok, 10);
    *address = quint16(v);
    return ok && v <= 0xFFFF;
}

QString hex4(quint16 v)
{
    return QStringLiteral("0x%1").arg(v, 4, 16, QLatin1Char('0'));
}

// Everything a run works with once the device is found.
class Session
{
public:
    Session(const Options &o, std::FILE *out, std::FILE *err) : m_o(o), m_out(out), m_err(err) {}

    int run()
    {
        registerLinkMetaTypes();
        if (m_o.action != Action::Raw && !loadDefinitions())
            return 1;
        if (!LiveCommands::openPort(m_link, m_o.port, m_o.baud, m_err))
            return 1;
        SerialPortWrapper *w = m_link.wrapper();
        QObject::connect(w, &SerialPortWrapper::LxBusError, &m_link,
                         [this](const QString &e) { m_errors.append(e); });
        QObject::connect(w, &SerialPortWrapper::LxBusWriteFinished, &m_link,
                         [this](const DevParamVector &v) { m_written.append(v); });
        QObject::connect(w, &SerialPortWrapper::LxBusValuesLoaded, &m_link,
                         [this](const DevParamVector &v) { m_loaded = v; });
        const int result = findDevice() ? act() : 1;
        m_link.stop();
        return result;
    }

private:
    bool fail(const QString &text)
    {
        std::fprintf(m_err, "vexo-log: params: %s\n", text.toUtf8().constData());
        return false;
    }

    bool loadDefinitions()
    {
        QString path = m_o.definitions;
        if (path.isEmpty())
            path = DeviceDefinitions::locate(QCoreApplication::applicationDirPath());
        if (path.isEmpty())
            return fail(
                QStringLiteral("no device definitions found (looked in %1); name one with --definitions")
                    .arg(DeviceDefinitions::searchPaths(QCoreApplication::applicationDirPath())
                             .join(QStringLiteral(", "))));
        QString error;
        if (!m_definitions.load(path, &error))
            return fail(QStringLiteral("%1: %2").arg(path, error));
        return true;
    }

    bool findDevice()
    {
        // A device named by its identifier is also asked directly, every half second.
        QString hex = m_o.device;
        if (hex.startsWith(QLatin1String("0x"), Qt::CaseInsensitive))
            hex = hex.mid(2);
        bool isId = false;
        const quint32 id = hex.toUInt(&isId, 16);
        QTimer ask;
        if (isId && id != 0) {
            QObject::connect(&ask, &QTimer::timeout, &m_link, [&] {
                QMetaObject::invokeMethod(m_link.wrapper(), "identifyDevice", Q_ARG(quint32, id));
            });
            ask.start(500);
            QMetaObject::invokeMethod(m_link.wrapper(), "identifyDevice", Q_ARG(quint32, id));
        }
        const bool found = waitFor(
            [&] {
                for (const Device &d : m_link.wrapper()->devices()) {
                    if (matches(d, m_o.device)) {
                        m_device = d;
                        return true;
                    }
                }
                return !m_link.wrapper()->isPortOpen();
            },
            m_o.seconds * 1000);
        if (!found || m_device.identifier == 0)
            return fail(QStringLiteral("no device %1 answered on %2").arg(m_o.device, m_o.port));
        if (m_o.action == Action::Raw)
            return true;
        m_definition = m_definitions.find(m_device);
        if (!m_definition)
            return fail(
                QStringLiteral("%1 (%2, hardware 0x%3) has no definition; --raw ADDR:SIZE reaches its "
                               "registers")
                    .arg(m_device.name, m_device.identifierText())
                    .arg(m_device.hardware, 4, 16, QLatin1Char('0')));
        if (m_definition->needsNewerFirmware(m_device.firmwareMajor(), m_device.firmwareMinor()))
            std::fprintf(m_err,
                         "vexo-log: params: warning: %s runs firmware %d.%d; its definition needs %d.%d\n",
                         m_device.name.toUtf8().constData(), m_device.firmwareMajor(),
                         m_device.firmwareMinor(), m_definition->firmwareMajor, m_definition->firmwareMinor);
        m_settings = DeviceSettings::fromDefinition(m_device.identifier, *m_definition);
        return true;
    }

    // Starts reading the active device and waits for every value; false (with the engine's error) if not.
    bool readAll()
    {
        m_errors.clear();
        m_loaded.clear();
        QMetaObject::invokeMethod(m_link.wrapper(), "setActiveDevice", Q_ARG(DeviceSettings, m_settings));
        const bool ok = waitFor(
            [&] {
                return !m_errors.isEmpty() || (m_loaded.size() == m_settings.params.size() &&
                                               DeviceSettings{0, m_loaded}.loadedPercent() == 100);
            },
            m_o.seconds * 1000 + 10000);
        if (!m_errors.isEmpty())
            return fail(m_errors.first());
        if (!ok)
            return fail(QStringLiteral("reading %1 timed out").arg(m_device.name));
        m_settings.params = m_loaded;
        return true;
    }

    // Writes and waits for the read-back; prints each result. False when any value did not take.
    bool write(const DevParamVector &params, const std::function<QString(const DevParam &)> &label)
    {
        m_errors.clear();
        m_written.clear();
        QMetaObject::invokeMethod(m_link.wrapper(), "LxBusDeviceWrite", Q_ARG(DevParamVector, params));
        waitFor([&] { return !m_written.isEmpty() || !m_errors.isEmpty(); }, m_o.seconds * 1000 + 10000);
        for (const QString &e : qAsConst(m_errors))
            fail(e);
        if (m_written.isEmpty())
            return false;
        bool all = true;
        for (const DevParam &p : m_written.first()) {
            if (p.confirmed) {
                print(m_out, QStringLiteral("%1 = %2").arg(label(p), valueOf(p, p.value)));
            } else {
                all = false;
                fail(p.loaded ? QStringLiteral("%1 did not take %2: the device holds %3")
                                    .arg(label(p), valueOf(p, p.sent), valueOf(p, p.value))
                              : QStringLiteral("%1: could not be read back").arg(label(p)));
            }
        }
        return all && m_errors.isEmpty();
    }

    const DeviceParameter *definitionOf(const DevParam &p) const
    {
        return m_definition ? m_definition->parameter(p.id) : nullptr;
    }

    QString valueOf(const DevParam &p, qint32 value) const
    {
        DevParam q = p;
        q.value = value;
        if (const DeviceParameter *d = definitionOf(p))
            return DeviceSettingsFile::valueText(*d, DeviceSettingsFile::rawOf(q));
        return QString::number(DeviceSettingsFile::rawOf(q));
    }

    // A parameter named by its name (any case) or its register address.
    int find(const QString &name) const
    {
        for (int i = 0; i < m_settings.params.size(); ++i) {
            const DeviceParameter *d = definitionOf(m_settings.params.at(i));
            if (d && d->name.compare(name, Qt::CaseInsensitive) == 0)
                return i;
        }
        quint16 address = 0;
        return parseAddress(name, &address) ? m_settings.indexOf(address) : -1;
    }

    QString line(const DevParam &p) const
    {
        const DeviceParameter *d = definitionOf(p);
        const double scale = std::pow(10.0, p.decimals);
        QString limits = QStringLiteral("[%1 .. %2]")
                             .arg(QString::number(p.min / scale, 'f', p.decimals),
                                  QString::number(p.max / scale, 'f', p.decimals));
        if (p.readOnly)
            limits = QStringLiteral("read-only");
        return QStringLiteral("%1  %2  %3  %4")
            .arg(hex4(p.address), -6)
            .arg(d ? d->name : QString(), -24)
            .arg(p.loaded ? valueOf(p, p.value) : QStringLiteral("?"), -16)
            .arg(limits);
    }

    // A value as typed: a choice's text, or a number with at most the parameter's decimals.
    bool rawFromText(const DevParam &p, const QString &text, qint64 *raw) const
    {
        if (const DeviceParameter *d = definitionOf(p)) {
            for (const auto &c : d->choices) {
                if (c.second.compare(text, Qt::CaseInsensitive) == 0) {
                    *raw = c.first;
                    return true;
                }
            }
        }
        bool ok = false;
        const double v = text.toDouble(&ok);
        if (!ok || !std::isfinite(v))
            return false;
        const double scaled = v * std::pow(10.0, p.decimals);
        *raw = std::llround(scaled);
        return std::fabs(scaled - double(*raw)) < 1e-6 && std::fabs(scaled) < 1e12;
    }

    int act()
    {
        switch (m_o.action) {
        case Action::Raw:
            return raw();
        case Action::Set:
            return set();
        case Action::Import:
            return import();
        default:
            break;
        }
        if (!readAll())
            return 1;
        if (m_o.action == Action::Export) {
            QString error;
            const DeviceSettingsFile file =
                DeviceSettingsFile::build(m_device, *m_definition, m_settings.params);
            if (!file.save(m_o.file, &error))
                return fail(QStringLiteral("%1: %2").arg(m_o.file, error)), 1;
            print(m_out, QStringLiteral("wrote %1: %2 parameters of %3")
                             .arg(m_o.file)
                             .arg(file.parameters.size())
                             .arg(m_device.name));
            return 0;
        }
        if (m_o.action == Action::List) {
            print(m_out, QStringLiteral("%1 (%2), firmware %3.%4, hardware 0x%5")
                             .arg(m_device.name)
                             .arg(m_device.identifier, 8, 16, QLatin1Char('0'))
                             .arg(m_device.firmwareMajor())
                             .arg(m_device.firmwareMinor())
                             .arg(m_device.hardware, 4, 16, QLatin1Char('0')));
            for (const DevParam &p : qAsConst(m_settings.params))
                print(m_out, line(p));
            return 0;
        }
        int result = 0;
        const QStringList names = m_o.items;
        for (int i = 0; i < (names.isEmpty() ? m_settings.params.size() : names.size()); ++i) {
            const int index = names.isEmpty() ? i : find(names.at(i));
            if (index < 0) {
                fail(QStringLiteral("%1 has no parameter \"%2\"").arg(m_device.name, names.at(i)));
                result = 1;
                continue;
            }
            const DevParam &p = m_settings.params.at(index);
            const DeviceParameter *d = definitionOf(p);
            print(m_out, QStringLiteral("%1 = %2").arg(d ? d->name : hex4(p.address), valueOf(p, p.value)));
        }
        return result;
    }

    int set()
    {
        DevParamVector toWrite;
        for (const QString &item : m_o.items) {
            const int eq = item.indexOf(QLatin1Char('='));
            const int index = eq > 0 ? find(item.left(eq).trimmed()) : -1;
            if (eq <= 0)
                return fail(QStringLiteral("\"%1\" is not NAME=VALUE").arg(item)), 2;
            if (index < 0)
                return fail(QStringLiteral("%1 has no parameter \"%2\"").arg(m_device.name, item.left(eq))),
                       2;
            DevParam p = m_settings.params.at(index);
            qint64 raw = 0;
            const QString text = item.mid(eq + 1).trimmed();
            if (!rawFromText(p, text, &raw))
                return fail(QStringLiteral(
                                "%1: \"%2\" is not a value it takes (a number with at most %3 decimals%4)")
                                .arg(definitionOf(p)->name, text)
                                .arg(p.decimals)
                                .arg(definitionOf(p)->choices.isEmpty() ? QString()
                                                                        : QStringLiteral(", or a choice"))),
                       2;
            const QString why = p.refusal(raw);
            if (!why.isEmpty())
                return fail(QStringLiteral("%1: %2; nothing was written").arg(definitionOf(p)->name, why)), 2;
            p.value = qint32(raw);
            toWrite.append(p);
        }
        if (!readAll())
            return 1;
        return write(toWrite, [&](const DevParam &p) { return definitionOf(p)->name; }) ? 0 : 1;
    }

    int import()
    {
        DeviceSettingsFile file;
        QString error;
        if (!DeviceSettingsFile::load(m_o.file, &file, &error))
            return fail(QStringLiteral("%1: %2").arg(m_o.file, error)), 1;
        if (!readAll())
            return 1;
        QVector<DeviceSettingsFile::DiffRow> rows;
        if (!DeviceSettingsFile::diff(*m_definition, m_settings.params, file, &rows, &error))
            return fail(QStringLiteral("%1: %2").arg(m_o.file, error)), 1;
        QVector<DeviceSettingsFile::DiffRow> chosen;
        int refused = 0;
        for (const auto &r : rows) {
            if (!r.differs)
                continue;
            QString where;
            if (r.side == DeviceSettingsFile::DiffRow::OnlyOnDevice)
                where = QStringLiteral("  (only on the device)");
            else if (r.side == DeviceSettingsFile::DiffRow::OnlyInFile)
                where = QStringLiteral("  (only in the file)");
            else if (!r.writable)
                where = QStringLiteral("  (not written: %1)").arg(r.refusal);
            print(m_out, QStringLiteral("%1  device %2  file %3%4")
                             .arg(r.name, -24)
                             .arg(r.deviceText.isEmpty() ? QStringLiteral("-") : r.deviceText, -14)
                             .arg(r.fileText.isEmpty() ? QStringLiteral("-") : r.fileText, -14)
                             .arg(where));
            // A read-only value that differs (another unit's serial number) is shown, not an error.
            const int index = m_settings.indexOf(r.address);
            const bool readOnly = index >= 0 && m_settings.params.at(index).readOnly;
            if (r.writable && r.side == DeviceSettingsFile::DiffRow::Both)
                chosen.append(r);
            else if (r.side != DeviceSettingsFile::DiffRow::OnlyOnDevice && !readOnly)
                ++refused;
        }
        if (chosen.isEmpty()) {
            print(m_out, refused ? QStringLiteral("nothing can be written")
                                 : QStringLiteral("the device already holds these settings"));
            return refused ? 1 : 0;
        }
        if (m_o.dryRun) {
            print(m_out,
                  QStringLiteral("%1 values would be written (dry run: nothing was)").arg(chosen.size()));
            return 0;
        }
        const bool ok = write(DeviceSettingsFile::toWrite(chosen, m_settings.params),
                              [&](const DevParam &p) { return definitionOf(p)->name; });
        return ok && refused == 0 ? 0 : 1;
    }

    int raw()
    {
        // ADDR:SIZE[=VALUE], all reads or all writes.
        DeviceSettings s;
        s.deviceId = m_device.identifier;
        bool writing = false;
        for (int i = 0; i < m_o.items.size(); ++i) {
            const QString &item = m_o.items.at(i);
            const int colon = item.indexOf(QLatin1Char(':'));
            const int eq = item.indexOf(QLatin1Char('='));
            quint16 address = 0;
            bool ok = colon > 0 && parseAddress(item.left(colon), &address);
            const int size = item.mid(colon + 1, eq < 0 ? -1 : eq - colon - 1).toInt(&ok) * (ok ? 1 : 0);
            if (!ok || (size != 1 && size != 2 && size != 4))
                return fail(QStringLiteral("\"%1\" is not ADDR:SIZE[=VALUE] with SIZE 1, 2 or 4").arg(item)),
                       2;
            if (i > 0 && writing != (eq > 0))
                return fail(QStringLiteral("--raw either reads or writes: give every item a value, or none")),
                       2;
            writing = eq > 0;
            DevParam p;
            p.address = address;
            p.width = quint8(size);
            p.max = size == 4 ? 0xFFFFFFFFLL : (1LL << (8 * size)) - 1;
            if (writing) {
                const QString text = item.mid(eq + 1);
                qint64 v = 0;
                if (text.startsWith(QLatin1String("0x"), Qt::CaseInsensitive))
                    v = text.mid(2).toLongLong(&ok, 16);
                else
                    v = text.toLongLong(&ok, 10);
                if (v < 0 && v >= -(1LL << (8 * size - 1)))
                    v += (1LL << (8 * size)); // a negative value stands for its two's complement
                if (!ok || !p.refusal(v).isEmpty())
                    return fail(QStringLiteral("%1: value must fit %2 bytes").arg(item).arg(size)), 2;
                p.value = qint32(quint32(v));
            }
            s.params.append(p);
        }
        // The raw registers become the active device's parameters, so the engine reads and writes them.
        const DevParamVector values = s.params;
        for (DevParam &p : s.params)
            p.value = 0;
        m_settings = s;
        if (!readAll())
            return 1;
        const auto label = [](const DevParam &p) { return hex4(p.address); };
        if (writing)
            return write(values, label) ? 0 : 1;
        for (const DevParam &p : qAsConst(m_settings.params)) {
            const qint64 v = DeviceSettingsFile::rawOf(p);
            print(m_out, QStringLiteral("%1 = %2 (0x%3)")
                             .arg(label(p))
                             .arg(v)
                             .arg(v, p.width * 2, 16, QLatin1Char('0')));
        }
        return 0;
    }

    const Options &m_o;
    std::FILE *m_out;
    std::FILE *m_err;
    SerialLink m_link;
    DeviceDefinitions m_definitions;
    const DeviceDefinition *m_definition = nullptr;
    Device m_device;
    DeviceSettings m_settings;
    DevParamVector m_loaded;
    QStringList m_errors;
    QVector<DevParamVector> m_written;
};
} // namespace

int ParamsCommand::run(const QStringList &args, std::FILE *out, std::FILE *err)
{
    Options o;
    if (const int bad = parse(args, &o, err))
        return bad;
    Session session(o, out, err);
    return session.run();
}
