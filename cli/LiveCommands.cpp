#include "cli/LiveCommands.h"

#include "cli/CliSupport.h"
#include "telemetry/AtomicFile.h"

#include "cli/SignalWatcher.h"
#include "link/LinkMetaTypes.h"
#include "link/SerialLink.h"
#include "link/SerialPlatform.h"
#include "link/TelemetryDecoder.h"
#include "telemetry/LogFileWriter.h"
#include "telemetry/MemorySensorTable.h"
#include "telemetry/TelemetryData.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFileInfo>
#include <QSaveFile>
#include <QSet>
#include <QTimer>

namespace {
struct Options
{
    QString port;
    int baud = 125000;
    int seconds = -1;
    QString out;
};

int usage(std::FILE *err, const QString &message)
{
    std::fprintf(err, "vexo-log: %s\n", message.toUtf8().constData());
    return 2;
}

// Parses --port, --baud, --seconds and (when wanted) --out; returns 0 or an exit code.
int parse(const QStringList &args, bool wantOut, Options *o, std::FILE *err)
{
    for (int i = 0; i < args.size(); i += 2) {
        const QString &key = args.at(i);
        if (i + 1 >= args.size())
            return usage(err, QStringLiteral("%1 needs a value").arg(key));
        const QString &value = args.at(i + 1);
        bool ok = true;
        if (key == QLatin1String("--port"))
            o->port = value;
        else if (key == QLatin1String("--baud"))
            o->baud = value.toInt(&ok);
        else if (key == QLatin1String("--seconds"))
            o->seconds = value.toInt(&ok);
        else if (key == QLatin1String("--out") && wantOut)
            o->out = value;
        else
            return usage(err, QStringLiteral("unknown option %1").arg(key));
        if (!ok || (key == QLatin1String("--baud") && o->baud != 125000 && o->baud != 250000) ||
            (key == QLatin1String("--seconds") && o->seconds <= 0))
            return usage(err, QStringLiteral("bad value for %1: %2").arg(key, value));
    }
    if (o->port.isEmpty())
        return usage(err, QStringLiteral("--port PORT is required"));
    if (wantOut && o->out.isEmpty())
        return usage(err, QStringLiteral("--out FILE.log is required"));
    return 0;
}

} // namespace

QString LiveCommands::deviceText(const Device &d)
{
    QString text =
        QStringLiteral("%1  %2  HW %3").arg(d.identifierText(), -8).arg(d.name, -14).arg(d.hardware);
    if (d.parentIdentifier)
        text += QStringLiteral("  extension %1 of %2")
                    .arg(d.extensionIndex)
                    .arg(QString::number(d.parentIdentifier, 16).toUpper());
    else if (d.extensionCount)
        text += QStringLiteral("  %1 extensions").arg(d.extensionCount);
    return text;
}

// Opens the port on the serial thread; prints the reason and returns false when it cannot.
bool LiveCommands::openPort(SerialLink &link, const QString &port, int baud, std::FILE *err)
{
    if (!SerialPlatform::portExists(port)) {
        std::fprintf(err, "vexo-log: %s: no such serial port\n", port.toUtf8().constData());
        return false;
    }
    link.start();
    int result = 2;
    QMetaObject::invokeMethod(
        link.wrapper(), [&] { result = link.wrapper()->setSerialPort(port); }, Qt::BlockingQueuedConnection);
    if (result != 0) {
        std::fprintf(err, "vexo-log: %s: %s\n", port.toUtf8().constData(),
                     link.wrapper()->lastError().toUtf8().constData());
        return false;
    }
    if (baud == 250000) {
        QMetaObject::invokeMethod(
            link.wrapper(), [&] { link.wrapper()->selectMode(SerialPortWrapper::LxBus250k); },
            Qt::BlockingQueuedConnection);
    }
    return true;
}
int LiveCommands::devices(const QStringList &args, std::FILE *out, std::FILE *err)
{
    Options o;
    if (const int bad = parse(args, false, &o, err))
        return bad;
    if (o.seconds < 0)
        o.seconds = 3;
    registerLinkMetaTypes();
    SerialLink link;
    if (!openPort(link, o.port, o.baud, err))
        return 1;
    QEventLoop loop;
    SignalWatcher::onInterrupt(&loop, [&] { loop.quit(); });
    QTimer::singleShot(o.seconds * 1000, &loop, &QEventLoop::quit);
    loop.exec();
    const Vector<Device> devices = link.wrapper()->devices();
    link.stop();
    std::fprintf(out, "%d devices on %s\n", int(devices.count()), o.port.toUtf8().constData());
    for (const Device &d : devices)
        std::fprintf(out, "  %s\n", deviceText(d).toUtf8().constData());
    return 0;
}

int LiveCommands::record(const QStringList &args, std::FILE *out, std::FILE *err)
{
    Options o;
    if (const int bad = parse(args, true, &o, err))
        return bad;
    if (QFileInfo(o.out).isDir() || !QFileInfo(QFileInfo(o.out).absolutePath()).isDir()) {
        std::fprintf(err, "vexo-log: %s: cannot write there\n", o.out.toUtf8().constData());
        return 1;
    }
    registerLinkMetaTypes();
    MemorySensorTable sensors;
    TelemetryData store(&sensors);
    TelemetryDecoder decoder(&store, &sensors);
    SerialLink link;
    QObject::connect(link.wrapper(), &SerialPortWrapper::telemetryReceived, &decoder,
                     &TelemetryDecoder::decode);
    QEventLoop loop;
    bool portLost = false;
    QObject::connect(link.wrapper(), &SerialPortWrapper::portOpenedStatus, &loop, [&](bool open) {
        if (!open) {
            portLost = true;
            loop.quit();
        }
    });
    QSet<QString> announced;
    QObject::connect(link.wrapper()->protocol(), &LxBusProtocol::deviceAdded, &loop, [&] {
        for (const Device &d : link.wrapper()->devices()) {
            const QString text = deviceText(d);
            if (d.identifier != 0 && !announced.contains(text)) {
                announced.insert(text);
                std::fprintf(out, "device %s\n", text.toUtf8().constData());
            }
        }
        std::fflush(out);
    });
    QObject::connect(&decoder, &TelemetryDecoder::messageReceived, &loop, [&](const TelemetryMessage &m) {
        std::fprintf(out, "message %s\n", m.displayText().toUtf8().constData());
        std::fflush(out);
    });
    if (!openPort(link, o.port, o.baud, err))
        return 1;
    store.setLogging(true);
    decoder.setSessionStart(QDateTime::currentMSecsSinceEpoch());

    QElapsedTimer running;
    running.start();
    QTimer status;
    QObject::connect(&status, &QTimer::timeout, &loop, [&] {
        std::fprintf(out, "%3llds  devices %d  records %lld  samples %lld  messages %d\n",
                     static_cast<long long>(running.elapsed() / 1000), int(store.package().devices().size()),
                     static_cast<long long>(decoder.decodedRecords()),
                     static_cast<long long>(store.package().sampleCount()),
                     int(store.package().messages().size()));
        std::fflush(out);
    });
    status.start(1000);
    bool interrupted = false;
    SignalWatcher::onInterrupt(&loop, [&] {
        interrupted = true;
        loop.quit();
    });
    if (o.seconds > 0)
        QTimer::singleShot(o.seconds * 1000, &loop, &QEventLoop::quit);
    loop.exec();
    status.stop();
    link.stop();
    // The last records the link handed on while stopping are still queued for the decoder.
    QCoreApplication::sendPostedEvents(&decoder, QEvent::MetaCall);
    decoder.flush();
    store.setLogging(false);

    // What was received is kept whatever ended the run: the time, Ctrl+C or a lost port.
    TelemetryDataPackage package = store.package();
    package.setName(QFileInfo(o.out).completeBaseName());
    package.setDescription(QStringLiteral("Recorded on %1 at %2")
                               .arg(o.port, QDateTime::currentDateTime().toString(Qt::ISODate)));
    QSaveFile file(o.out);
    const QByteArray bytes = LogFileWriter::write(package);
    if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size() || !AtomicFile::commit(file)) {
        std::fprintf(err, "vexo-log: %s: cannot write: %s\n", o.out.toUtf8().constData(),
                     file.errorString().toUtf8().constData());
        return 1;
    }
    std::fprintf(out, "wrote %s: %lld samples, %d messages%s\n", o.out.toUtf8().constData(),
                 static_cast<long long>(package.sampleCount()), int(package.messages().size()),
                 interrupted ? " (interrupted)" : "");
    if (portLost) {
        const qint64 recorded = package.sampleCount() + package.messages().size();
        const QString said = SerialLink::adapterLostText(
            QDateTime::fromMSecsSinceEpoch(decoder.sessionStart() + package.lastTimestamp()),
            recorded > 0 ? QStringLiteral("in %1").arg(o.out) : QString());
        std::fprintf(err, "vexo-log: %s (%s: %s)\n", said.toUtf8().constData(), o.port.toUtf8().constData(),
                     CliSupport::plainText(link.wrapper()->lastError()).toUtf8().constData());
        return 1;
    }
    return 0;
}
