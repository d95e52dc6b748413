#include "cli/FlashCommand.h"

#include "cli/CliSupport.h"
#include "cli/DbCommands.h"
#include "cli/LiveCommands.h"
#include "cli/SignalWatcher.h"
#include "link/LinkMetaTypes.h"
#include "link/SerialLink.h"
#include "tools/DeviceUpdater.h"
#include "tools/FirmwareDatabase.h"
#include "tools/FirmwareImage.h"

#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QSet>
#include <QTimer>

#include <functional>
#include <memory>

namespace {
const char kFlashUsage[] =
    "usage: vexo-log flash --port PORT --image FILE [--hw H] [--version S] [--seconds N]\n"
    "       vexo-log flash --port PORT --hw H [--variant V] [--version S] [--fwdb PATH] [--seconds N]\n"
    "       vexo-log flash --port PORT --all [--variant V] [--fwdb PATH] [--dry-run] [--seconds N]\n"
    "\n"
    "  Programs device firmware through the USB adapter on PORT. Images are checked whole before\n"
    "  anything is sent; a device whose update fails stays in its boot loader and is programmed\n"
    "  again by running the same command.\n"
    "  --image FILE  a firmware file; the device is the one of hardware H (--hw) on the bus, or the\n"
    "                only device there; --version S tells it the version it gets, to confirm after\n"
    "  --hw H        the newest firmware for hardware H in the device updates database (or version S)\n"
    "  --all         every device on the bus: its current and newest firmware, then the update of\n"
    "                each older one in turn, then every version read back from the bus\n"
    "  --variant V   firmware variant (default: the only one the database has for the device)\n"
    "  --fwdb PATH   the device updates database (default: the studio's DeviceUpdates.sqlite)\n"
    "  --dry-run     with --all: the list only, nothing sent\n"
    "  --seconds N   how long to listen for the devices on the bus first (default 3)\n"
    "  H and S: numbers (0x.. for hexadecimal); S also as major.minor\n"
    "\n"
    "exit codes: 0 done and confirmed (or nothing to do), 1 refused, failed or not confirmed,\n"
    "            2 bad usage\n";

struct Options
{
    QString port;
    QString image;
    QString fwdb;
    int hw = -1;
    int variant = -1;
    int version = -1;
    int seconds = 3;
    bool all = false;
    bool dryRun = false;
};

// What is to be programmed into one device.
struct Job
{
    Device device;    // identifier 0: whichever device's boot loader answers alone on the adapter
    int current = -1; // the version the device reports on the bus; -1 unknown
    int target = 0;   // the version it is to report afterwards; 0 unknown
    QString label;    // the firmware's name and version, or the file
    FirmwareImage image;
    QString outcome; // empty until the device was updated, then what became of it
    bool ok = false;
};

struct Io
{
    std::FILE *out;
    std::FILE *err;
    void print(const QString &text) const
    {
        std::fputs(text.toUtf8().constData(), out);
        std::fflush(out);
    }
    int fail(const QString &why) const { return CliSupport::fail(err, why); }
    int usage(const QString &why) const { return CliSupport::usage(err, "flash", why, kFlashUsage); }
};

bool parseNumber(const QString &text, int *value)
{
    bool ok = false;
    *value = text.trimmed().toInt(&ok, 0);
    return ok && *value >= 0;
}

QString versionText(int version)
{
    return version < 0 ? QStringLiteral("?") : BootLoaderProtocol::versionText(quint16(version));
}

int busVersion(const Device &d)
{
    return BootLoaderProtocol::versionFromBus(d.extra1, d.extra2);
}

bool readImageFile(const QString &path, FirmwareImage *image, QString *why)
{
    const QFileInfo info(path);
    QFile file(path);
    if (!info.isFile() || !file.open(QIODevice::ReadOnly)) {
        *why = QStringLiteral("%1: %2").arg(path, DeviceUpdater::tr("Unable to open the update file."));
        return false;
    }
    if (info.size() > FirmwareImage::kMaxImageBytes) {
        *why = QStringLiteral("%1: %2 bytes, larger than any firmware image").arg(path).arg(info.size());
        return false;
    }
    if (!FirmwareImage::parse(file.readAll(), image, why)) {
        *why = QStringLiteral("%1: %2").arg(path, *why);
        return false;
    }
    return true;
}

// The firmware for a device of hardware hw: the version asked for (or the newest) of the variant asked
// for (or the only one there is).
bool chooseFirmware(FirmwareDatabase &db, int hw, int variant, int version,
                    FirmwareDatabase::Firmware *chosen, QString *why)
{
    const QVector<FirmwareDatabase::Firmware> all = db.firmwares(hw);
    QList<int> variants;
    for (const auto &f : all) {
        if (!variants.contains(f.variant))
            variants.append(f.variant);
    }
    if (all.isEmpty()) {
        *why = QStringLiteral("no firmware for hardware %1 in the database").arg(hw);
        return false;
    }
    if (variant < 0 && variants.size() > 1) {
        QStringList names;
        for (int v : variants)
            names << QString::number(v);
        *why = QStringLiteral("hardware %1 has firmware variants %2: choose one with --variant")
                   .arg(hw)
                   .arg(names.join(QLatin1String(", ")));
        return false;
    }
    const int wanted = variant < 0 ? variants.first() : variant;
    const FirmwareDatabase::Firmware *best = nullptr;
    for (const auto &f : all) {
        if (f.variant == wanted && (version < 0 ? (!best || f.swId > best->swId) : f.swId == version))
            best = &f;
    }
    if (!best) {
        *why = QStringLiteral("%1 (hardware %2, variant %3%4)")
                   .arg(FirmwareDatabase::tr("Update not found"))
                   .arg(hw)
                   .arg(wanted)
                   .arg(version < 0 ? QString() : QStringLiteral(", version ") + versionText(version));
        return false;
    }
    *chosen = *best;
    return true;
}

bool loadFirmware(FirmwareDatabase &db, int hw, const FirmwareDatabase::Firmware &f, Job *job, QString *why)
{
    QByteArray data;
    if (!db.image(hw, f.variant, f.swId, &data)) {
        *why = db.lastError();
        return false;
    }
    if (!FirmwareImage::parse(data, &job->image, why)) {
        *why = QStringLiteral("the image of %1 %2 in the database is refused: %3")
                   .arg(f.name, versionText(f.swId), *why);
        return false;
    }
    job->target = f.swId;
    job->label = QStringLiteral("%1 %2").arg(f.name, versionText(f.swId));
    return true;
}

// Runs the link's event loop for a while, or until done() says enough (checked every 100 ms).
void listen(int ms, const std::function<bool()> &done = {})
{
    QEventLoop loop;
    QTimer poll;
    QElapsedTimer clock;
    clock.start();
    QObject::connect(&poll, &QTimer::timeout, &loop, [&] {
        if (clock.elapsed() >= ms || (done && done()))
            loop.quit();
    });
    poll.start(100);
    loop.exec();
}

QVector<Device> busDevices(SerialLink &link)
{
    QVector<Device> list;
    for (const Device &d : link.wrapper()->devices()) {
        if (d.identifier != 0)
            list.append(d);
    }
    return list;
}

// Programs one device; prints the steps. False when the update did not run to its end.
bool flash(SerialLink &link, Job *job, const Io &io, bool *portLost)
{
    DeviceUpdater updater(link.wrapper());
    DeviceUpdater::Options options = updater.options();
    options.target = job->device.identifier;
    options.newVersion = quint16(job->target);
    updater.setOptions(options);

    QEventLoop loop;
    int result = -1;
    int shownPercent = -10;
    UpdatingStatus last;
    QObject::connect(&updater, &DeviceUpdater::updatingStatusChanged, &loop, [&](const UpdatingStatus &s) {
        last = s;
        switch (s.stage) {
        case UpdatingStatus::Connecting:
            if (s.attempt == 1 || s.attempt % 10 == 0)
                io.print(QStringLiteral("  Update connect attempt: %1\n").arg(s.attempt));
            break;
        case UpdatingStatus::Programming:
            if (s.packetCount > 0 && (s.packet * 100 / s.packetCount >= shownPercent + 10 || s.packet == 1)) {
                shownPercent = s.packet * 100 / s.packetCount;
                io.print(QStringLiteral("  Packet %1 of %2 (%3%)\n")
                             .arg(s.packet)
                             .arg(s.packetCount)
                             .arg(shownPercent));
            }
            break;
        case UpdatingStatus::Idle:
            break;
        default:
            if (!s.text.isEmpty())
                io.print(QStringLiteral("  %1\n").arg(CliSupport::plainText(s.text)));
            break;
        }
    });
    QObject::connect(&updater, &DeviceUpdater::finished, &loop, [&](int r) {
        result = r;
        loop.quit();
    });
    if (!updater.start(job->image)) {
        job->outcome = QStringLiteral("update failed: another update is running");
        return false;
    }
    loop.exec();
    *portLost = result == DeviceUpdater::PortClosed;
    if (result != DeviceUpdater::Succeeded) {
        job->outcome =
            QStringLiteral("update failed: %1")
                .arg(CliSupport::plainText(DeviceUpdater::resultText(DeviceUpdater::Result(result))));
        return false;
    }
    if (job->device.identifier == 0) {
        // It was found through its boot loader: what that said is all that is known of it.
        const BootLoaderProtocol::DeviceInfo info = updater.deviceInfo();
        job->device.identifier = info.identifier;
        job->device.hardware = info.hardware;
        job->device.name = info.name;
        job->current = info.firmware;
    }
    return true;
}

// After the updates: each device's version as the bus reports it now.
void confirm(SerialLink &link, QVector<Job *> jobs, int waitMs, const Io &io)
{
    const auto check = [&] {
        bool all = true;
        for (Job *job : jobs) {
            if (job->ok || !job->outcome.isEmpty())
                continue;
            for (const Device &d : busDevices(link)) {
                if (d.identifier == job->device.identifier && busVersion(d) == job->target)
                    job->ok = true;
            }
            all = all && job->ok;
        }
        return all;
    };
    bool pending = false;
    for (Job *job : jobs)
        pending = pending || job->outcome.isEmpty();
    if (!pending)
        return;
    io.print(QStringLiteral("Reading the versions back from the bus...\n"));
    listen(waitMs, check);
    check();
    for (Job *job : jobs) {
        if (!job->outcome.isEmpty())
            continue;
        if (job->ok) {
            job->outcome = QStringLiteral("now reports %1").arg(versionText(job->target));
            continue;
        }
        int reported = -1;
        for (const Device &d : busDevices(link)) {
            if (d.identifier == job->device.identifier)
                reported = busVersion(d);
        }
        job->outcome = reported < 0
                           ? QStringLiteral("DID NOT TAKE: the device does not answer on the bus")
                           : QStringLiteral("DID NOT TAKE: it still reports %1").arg(versionText(reported));
    }
}

int parse(const QStringList &args, Options *o, const Io &io)
{
    for (int i = 0; i < args.size(); ++i) {
        const QString &a = args.at(i);
        if (a == QLatin1String("--all")) {
            o->all = true;
            continue;
        }
        if (a == QLatin1String("--dry-run")) {
            o->dryRun = true;
            continue;
        }
        if (i + 1 >= args.size())
            return io.usage(QStringLiteral("%1 needs a value").arg(a));
        const QString v = args.at(++i);
        bool ok = true;
        if (a == QLatin1String("--port"))
            o->port = v;
        else if (a == QLatin1String("--image"))
            o->image = v;
        else if (a == QLatin1String("--fwdb"))
            o->fwdb = v;
        else if (a == QLatin1String("--hw"))
            ok = parseNumber(v, &o->hw);
        else if (a == QLatin1String("--variant"))
            ok = parseNumber(v, &o->variant);
        else if (a == QLatin1String("--version"))
            ok = FirmwareDatabase::parseVersion(v, &o->version) ||
                 (parseNumber(v, &o->version) && o->version <= 0xFFFF);
        else if (a == QLatin1String("--seconds"))
            ok = parseNumber(v, &o->seconds) && o->seconds > 0;
        else
            return io.usage(QStringLiteral("unknown option %1").arg(a));
        if (!ok)
            return io.usage(QStringLiteral("bad value for %1: %2").arg(a, v));
    }
    if (o->port.isEmpty())
        return io.usage(QStringLiteral("--port PORT is required"));
    if (o->all && (!o->image.isEmpty() || o->hw >= 0 || o->version >= 0))
        return io.usage(QStringLiteral("--all takes no --image, --hw or --version"));
    if (!o->all && o->image.isEmpty() && o->hw < 0)
        return io.usage(QStringLiteral("--image FILE, --hw H or --all is required"));
    if (o->dryRun && !o->all)
        return io.usage(QStringLiteral("--dry-run goes with --all"));
    if (!o->image.isEmpty() && (!o->fwdb.isEmpty() || o->variant >= 0))
        return io.usage(QStringLiteral("--image takes no --fwdb or --variant"));
    if (o->fwdb.isEmpty())
        o->fwdb = FirmwareDatabase::pathIn(QFileInfo(DbCommands::defaultDatabasePath()).path());
    return 0;
}

QString deviceLine(const Job &job)
{
    if (job.device.identifier == 0)
        return QStringLiteral("the device alone on the adapter");
    return QStringLiteral("%1 %2 (hardware %3)")
        .arg(job.device.identifierText(), job.device.name)
        .arg(job.device.hardware);
}

int runOne(const Options &o, const Io &io)
{
    // Everything that can be refused is refused before the port is opened.
    Job job;
    QString why;
    if (!o.image.isEmpty()) {
        if (!readImageFile(o.image, &job.image, &why))
            return io.fail(why + QStringLiteral(" Nothing was sent."));
        job.target = qMax(0, o.version);
        job.label = QFileInfo(o.image).fileName();
    } else {
        FirmwareDatabase db;
        if (!db.open(o.fwdb))
            return io.fail(QStringLiteral("%1: %2").arg(o.fwdb, db.lastError()));
        FirmwareDatabase::Firmware chosen;
        if (!chooseFirmware(db, o.hw, o.variant, o.version, &chosen, &why) ||
            !loadFirmware(db, o.hw, chosen, &job, &why))
            return io.fail(why + QStringLiteral(" Nothing was sent."));
    }

    registerLinkMetaTypes();
    SerialLink link;
    if (!LiveCommands::openPort(link, o.port, 125000, io.err))
        return 1;
    listen(o.seconds * 1000);
    QVector<Device> candidates;
    for (const Device &d : busDevices(link)) {
        if (o.hw < 0 || d.hardware == o.hw)
            candidates.append(d);
    }
    if (candidates.size() > 1) {
        link.stop();
        return io.fail(
            o.hw < 0 ? QStringLiteral("%1 devices on the bus: name the one to update with --hw, or use --all")
                           .arg(candidates.size())
                     : QStringLiteral("%1 devices of hardware %2 on the bus: use --all")
                           .arg(candidates.size())
                           .arg(o.hw));
    }
    if (candidates.size() == 1) {
        job.device = candidates.first();
        job.current = busVersion(job.device);
    } else {
        // Not on the bus: a device left in its boot loader by an update that failed answers only there.
        io.print(QStringLiteral("No device %1answers on the bus: programming the boot loader of the device "
                                "alone on the adapter.\n")
                     .arg(o.hw < 0 ? QString() : QStringLiteral("of hardware %1 ").arg(o.hw)));
    }
    io.print(QStringLiteral("Updating %1 from %2 to %3 (%4 packets)\n")
                 .arg(deviceLine(job), versionText(job.current), job.label)
                 .arg(job.image.packetCount()));
    bool interrupted = false;
    SignalWatcher::onInterrupt(&link, [&] {
        interrupted = true;
        io.print(QStringLiteral("The update in progress runs to its end first.\n"));
    });
    bool portLost = false;
    if (flash(link, &job, io, &portLost) && job.target > 0 && job.device.identifier != 0)
        confirm(link, {&job}, qMax(10, 2 * o.seconds) * 1000, io);
    else if (job.outcome.isEmpty())
        job.outcome = QStringLiteral("programmed (no version given to confirm)");
    link.stop();
    io.print(QStringLiteral("%1: %2\n").arg(deviceLine(job), job.outcome));
    const bool good = job.outcome.startsWith(QLatin1String("now reports")) ||
                      job.outcome.startsWith(QLatin1String("programmed"));
    if (job.outcome.startsWith(QLatin1String("update failed")) && !portLost)
        io.print(
            o.hw >= 0 || job.device.hardware == 0
                ? QStringLiteral(
                      "The device stays in its boot loader: run the same command again to program it.\n")
                : QStringLiteral("The device stays in its boot loader: run the same command with --hw %1 to "
                                 "program it.\n")
                      .arg(job.device.hardware));
    return good && !interrupted ? 0 : 1;
}

int runAll(const Options &o, const Io &io)
{
    FirmwareDatabase db;
    if (!db.open(o.fwdb))
        return io.fail(QStringLiteral("%1: %2").arg(o.fwdb, db.lastError()));
    registerLinkMetaTypes();
    SerialLink link;
    if (!LiveCommands::openPort(link, o.port, 125000, io.err))
        return 1;
    listen(o.seconds * 1000);
    const QVector<Device> devices = busDevices(link);

    std::vector<std::unique_ptr<Job>> jobs;
    int refused = 0;
    QString table =
        QStringLiteral("%1 devices on %2 (firmware from %3)\n").arg(devices.size()).arg(o.port, o.fwdb);
    for (const Device &d : devices) {
        auto job = std::make_unique<Job>();
        job->device = d;
        job->current = busVersion(d);
        QString plan;
        FirmwareDatabase::Firmware newest;
        QString why;
        if (!chooseFirmware(db, d.hardware, o.variant, -1, &newest, &why)) {
            plan = QStringLiteral("newest -    %1").arg(why);
        } else if (newest.swId <= job->current) {
            plan = QStringLiteral("newest %1  up to date").arg(versionText(newest.swId), -5);
        } else if (!loadFirmware(db, d.hardware, newest, job.get(), &why)) {
            ++refused;
            plan = QStringLiteral("newest %1  REFUSED: %2").arg(versionText(newest.swId), -5).arg(why);
        } else {
            plan = QStringLiteral("newest %1  update (%2 packets)")
                       .arg(versionText(newest.swId), -5)
                       .arg(job->image.packetCount());
            jobs.push_back(std::move(job));
        }
        table += QStringLiteral("  %1  current %2  %3\n")
                     .arg(LiveCommands::deviceText(d))
                     .arg(versionText(busVersion(d)), -5)
                     .arg(plan);
    }
    io.print(table);
    if (o.dryRun || jobs.empty()) {
        link.stop();
        io.print(jobs.empty()
                     ? QStringLiteral("Nothing to update.\n")
                     : QStringLiteral("%1 devices to update (dry run: nothing sent).\n").arg(jobs.size()));
        return refused > 0 ? 1 : 0;
    }

    bool interrupted = false;
    SignalWatcher::onInterrupt(&link, [&] {
        interrupted = true;
        io.print(QStringLiteral("Stopping after the update in progress.\n"));
    });
    bool portLost = false;
    for (auto &job : jobs) {
        if (interrupted || portLost) {
            job->outcome = portLost ? QStringLiteral("not updated: the adapter went away")
                                    : QStringLiteral("not updated: interrupted");
            continue;
        }
        io.print(QStringLiteral("Updating %1 from %2 to %3\n")
                     .arg(deviceLine(*job), versionText(job->current), job->label));
        flash(link, job.get(), io, &portLost);
    }
    QVector<Job *> all;
    for (auto &job : jobs)
        all.append(job.get());
    if (!portLost)
        confirm(link, all, qMax(10, 2 * o.seconds) * 1000, io);
    link.stop();

    int good = 0;
    QString result = QStringLiteral("Result:\n");
    for (const auto &job : jobs) {
        good += job->ok ? 1 : 0;
        result +=
            QStringLiteral("  %1  %2 -> %3  %4\n")
                .arg(deviceLine(*job), versionText(job->current), versionText(job->target), job->outcome);
    }
    result += QStringLiteral("%1 of %2 updated and confirmed.\n").arg(good).arg(jobs.size());
    // A device left in its boot loader no longer answers on the bus, so --all would not find it again.
    for (const auto &job : jobs) {
        if (job->outcome.startsWith(QLatin1String("update failed")) && !portLost)
            result += QStringLiteral(
                          "%1 waits in its boot loader; program it with: vexo-log flash --port %2 --hw %3 "
                          "--fwdb %4\n")
                          .arg(job->device.identifierText(), o.port)
                          .arg(job->device.hardware)
                          .arg(o.fwdb);
    }
    io.print(result);
    return good == int(jobs.size()) && refused == 0 && !interrupted ? 0 : 1;
}
} // namespace

int FlashCommand::run(const QStringList &args, std::FILE *out, std::FILE *err)
{
    const Io io{out, err};
    if (args.contains(QStringLiteral("--help")) || args.contains(QStringLiteral("-h"))) {
        std::fputs(kFlashUsage, out);
        return 0;
    }
    Options o;
    if (const int bad = parse(args, &o, io))
        return bad;
    return o.all ? runAll(o, io) : runOne(o, io);
}
