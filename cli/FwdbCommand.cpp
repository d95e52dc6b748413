#include "cli/FwdbCommand.h"

#include "cli/CliSupport.h"
#include "tools/BootLoaderProtocol.h"
#include "tools/FirmwareDatabase.h"
#include "tools/FirmwareImage.h"

#include <QFile>
#include <QFileInfo>

namespace {
const char kFwdbUsage[] =
    "usage: vexo-log fwdb make OUT --hw H --sw S [--variant V] --name N --desc-en TEXT\n"
    "                 [--desc-LANG TEXT ...] --date D IMAGE [[options] IMAGE ...]\n"
    "       vexo-log fwdb list FWDB [--lang LANG]\n"
    "\n"
    "  make  adds one row per IMAGE to the device updates database OUT, with the options given\n"
    "        before it (options stay in force for the images after them: change only --sw and the\n"
    "        notes to add another version). OUT is created, or extended when it already is such a\n"
    "        database; it is replaced only when every image is whole and no device, variant and\n"
    "        version is there twice, so a refused run changes nothing.\n"
    "        --hw       the device's hardware id            --sw      firmware version: major.minor\n"
    "                                                                 or the 16-bit number\n"
    "        --variant  firmware variant (default 0)        --name    firmware or device name\n"
    "        --desc-en  release notes in English (required); --desc-de, --desc-cs ... other languages\n"
    "        --date     release date, yyyy-MM-dd [hh:mm:ss]\n"
    "  list  every firmware in FWDB, newest first per device and variant, with its notes in LANG\n"
    "        (versions: major.minor, the high and low byte of the version number, then the number)\n"
    "        (default: the interface language; English where LANG has no text)\n";

int usage(std::FILE *err, const QString &message)
{
    return CliSupport::usage(err, "fwdb", message, kFwdbUsage);
}

bool readImage(const QString &path, QByteArray *data, QString *error)
{
    const QFileInfo info(path);
    if (!info.isFile()) {
        *error = QStringLiteral("%1: no such file").arg(path);
        return false;
    }
    if (info.size() > FirmwareImage::kMaxImageBytes) {
        *error = QStringLiteral("%1: %2 bytes, larger than any firmware image (at most %3)")
                     .arg(path)
                     .arg(info.size())
                     .arg(FirmwareImage::kMaxImageBytes);
        return false;
    }
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        *error = QStringLiteral("%1: cannot read: %2").arg(path, file.errorString());
        return false;
    }
    *data = file.readAll();
    QString why;
    if (!FirmwareImage::parse(*data, nullptr, &why)) {
        *error = QStringLiteral("%1: %2").arg(path, why);
        return false;
    }
    return true;
}

bool readNumber(const QString &text, int *value)
{
    bool ok = false;
    *value = text.toInt(&ok);
    return ok && *value >= 0;
}

int make(const QStringList &args, std::FILE *err)
{
    if (args.isEmpty() || args.at(0).startsWith(QLatin1String("--")))
        return usage(err, QStringLiteral("make needs the output file first"));
    const QString outPath = args.at(0);
    FirmwareDatabase::Entry current;
    bool haveHw = false, haveSw = false;
    QVector<FirmwareDatabase::Entry> entries;
    for (int i = 1; i < args.size(); ++i) {
        const QString &a = args.at(i);
        if (!a.startsWith(QLatin1String("--"))) {
            if (!haveHw || !haveSw || current.name.isEmpty() || current.date.isEmpty())
                return usage(err, QStringLiteral("%1: --hw, --sw, --name, --desc-en and --date must come "
                                                 "before the first image")
                                      .arg(a));
            QString error;
            if (!readImage(a, &current.data, &error))
                return CliSupport::fail(err, error + QStringLiteral("; nothing was written"));
            entries.append(current);
            continue;
        }
        if (i + 1 >= args.size())
            return usage(err, QStringLiteral("%1 needs a value").arg(a));
        const QString value = args.at(++i);
        bool ok = true;
        if (a == QLatin1String("--hw")) {
            ok = haveHw = readNumber(value, &current.hwId);
        } else if (a == QLatin1String("--sw")) {
            ok = haveSw = FirmwareDatabase::parseVersion(value, &current.swId);
        } else if (a == QLatin1String("--variant")) {
            ok = readNumber(value, &current.variant);
        } else if (a == QLatin1String("--name")) {
            current.name = value;
        } else if (a == QLatin1String("--date")) {
            current.date = value;
        } else if (a.startsWith(QLatin1String("--desc-"))) {
            const QString language = a.mid(7);
            bool replaced = false;
            for (auto &d : current.descriptions) {
                if (d.first == language) {
                    d.second = value;
                    replaced = true;
                }
            }
            if (!replaced)
                current.descriptions.append({language, value});
        } else {
            return usage(err, QStringLiteral("unknown option %1").arg(a));
        }
        if (!ok)
            return usage(err, QStringLiteral("bad value for %1: %2").arg(a, value));
    }
    if (entries.isEmpty())
        return usage(err, QStringLiteral("make needs at least one image"));
    QString error;
    if (!FirmwareDatabase::addFirmware(outPath, entries, &error))
        return CliSupport::fail(err, error);
    return 0;
}

int list(const QStringList &args, std::FILE *out, std::FILE *err)
{
    QString path;
    QString language = FirmwareDatabase::interfaceLanguage();
    for (int i = 0; i < args.size(); ++i) {
        if (args.at(i) == QLatin1String("--lang") && i + 1 < args.size())
            language = args.at(++i);
        else if (path.isEmpty() && !args.at(i).startsWith(QLatin1String("--")))
            path = args.at(i);
        else
            return usage(err, QStringLiteral("unknown argument \"%1\"").arg(args.at(i)));
    }
    if (path.isEmpty())
        return usage(err, QStringLiteral("list takes one database file"));
    FirmwareDatabase db(language);
    if (!db.open(path)) {
        // Most reasons name the file already; "Device database doesn't exist" does not.
        const QString why = db.lastError();
        return CliSupport::fail(err, why.startsWith(path) ? why : QStringLiteral("%1: %2").arg(path, why));
    }
    QString text = QStringLiteral("%1 (notes in \"%2\")\n").arg(path, db.language());
    QList<int> devices;
    for (const FirmwareDatabase::Overview &o : db.overview()) {
        if (!devices.contains(o.hwId))
            devices.append(o.hwId);
    }
    int damaged = 0;
    for (int hw : devices) {
        for (const FirmwareDatabase::Firmware &f : db.firmwares(hw)) {
            QByteArray data;
            FirmwareImage image;
            QString why;
            QString content;
            if (!db.image(hw, f.variant, f.swId, &data))
                content = db.lastError();
            else if (!FirmwareImage::parse(data, &image, &why))
                content = QStringLiteral("DAMAGED: %1").arg(why);
            else
                content = QStringLiteral("%1 bytes in %2 packets")
                              .arg(image.payloadBytes())
                              .arg(image.packetCount());
            damaged += content.startsWith(QLatin1String("DAMAGED")) ? 1 : 0;
            text += QStringLiteral("hw %1  variant %2  version %3  %4  %5  %6\n")
                        .arg(hw)
                        .arg(f.variant)
                        .arg(QStringLiteral("%1 (%2)")
                                 .arg(BootLoaderProtocol::versionText(quint16(f.swId)))
                                 .arg(f.swId))
                        .arg(f.name, FirmwareDatabase::displayDate(f.date), content);
            for (const QString &line : f.description.split(QLatin1Char('\n')))
                text += QStringLiteral("    %1\n").arg(line);
        }
    }
    if (devices.isEmpty())
        text += QStringLiteral("no firmware\n");
    std::fputs(text.toUtf8().constData(), out);
    return damaged > 0 ? 1 : 0;
}
} // namespace

int FwdbCommand::run(const QStringList &args, std::FILE *out, std::FILE *err)
{
    const QString what = args.value(0);
    if (what == QLatin1String("--help") || what == QLatin1String("-h")) {
        std::fputs(kFwdbUsage, out);
        return 0;
    }
    if (what == QLatin1String("make"))
        return make(args.mid(1), err);
    if (what == QLatin1String("list"))
        return list(args.mid(1), out, err);
    return usage(err, what.isEmpty() ? QStringLiteral("make or list?")
                                     : QStringLiteral("unknown subcommand \"%1\"").arg(what));
}
