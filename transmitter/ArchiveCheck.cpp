#include "transmitter/ArchiveCheck.h"

#include "database/ModelTableModel.h"
#include "transmitter/ZipEntries.h"

#include <QCoreApplication>
#include <QSet>

#include <quazip/quazip.h>
#include <quazip/unzip.h>

namespace ArchiveCheck {

namespace {
constexpr int kMaxEntries = 100000;
constexpr int kMaxDepth = 32;
// Deflate cannot expand more than about 1032 to 1; a larger claim is a lie about the sizes.
constexpr qint64 kMaxRatio = 1100;
constexpr qint64 kMaxTotal = qint64(1) << 40;

QString tr(const char *text)
{
    return QCoreApplication::translate("ArchiveCheck", text);
}

// Unix file types in the high 16 bits of the external attributes.
constexpr quint32 kTypeMask = 0170000;
constexpr quint32 kRegular = 0100000;
constexpr quint32 kFolder = 0040000;

// Names the drive's file system reserves for devices, with or without an extension.
bool isDeviceName(const QString &segment)
{
    const QString base = segment.section(QLatin1Char('.'), 0, 0).trimmed().toLower();
    static const QStringList fixed = {QStringLiteral("con"), QStringLiteral("prn"), QStringLiteral("aux"),
                                      QStringLiteral("nul"), QStringLiteral("clock$")};
    if (fixed.contains(base))
        return true;
    return base.size() == 4 &&
           (base.startsWith(QLatin1String("com")) || base.startsWith(QLatin1String("lpt"))) &&
           base.at(3) >= QLatin1Char('1') && base.at(3) <= QLatin1Char('9');
}

// The shared rule: false with the reason in *why (naming `shown`) when `path` may not be written.
bool pathProblem(const QString &path, const QString &shown, QString *why)
{
    auto fail = [why](const QString &text) {
        if (why)
            *why = text;
        return false;
    };
    if (path.isEmpty())
        return fail(tr("the name is empty"));
    if (path.startsWith(QLatin1Char('/')))
        return fail(tr("\"%1\" has an absolute path").arg(shown));
    for (const QChar c : path) {
        if (c.unicode() < 0x20 || c.unicode() == 0x7f)
            return fail(tr("\"%1\" has a control character in its name").arg(shown));
        if (c == QLatin1Char('\\'))
            return fail(tr("\"%1\" uses \"\\\" in its path").arg(shown));
        if (c == QLatin1Char(':'))
            return fail(tr("\"%1\" names a drive or a stream").arg(shown));
        if (QStringLiteral("<>\"|?*").contains(c))
            return fail(tr("\"%1\" has a character the transmitter's file system cannot store").arg(shown));
    }
    const QStringList segments = path.split(QLatin1Char('/'));
    if (segments.size() > kMaxDepth)
        return fail(tr("\"%1\" is nested too deeply").arg(shown));
    for (const QString &segment : segments) {
        if (segment.isEmpty() || segment == QLatin1String(".") || segment == QLatin1String(".."))
            return fail(tr("\"%1\" has an empty, \".\" or \"..\" part in its path").arg(shown));
        // The drive's file system drops trailing dots and blanks: two names would become one.
        if (segment.endsWith(QLatin1Char('.')) || segment.endsWith(QLatin1Char(' ')))
            return fail(tr("\"%1\" has a name part ending in a dot or a blank").arg(shown));
        if (segment.size() > 255)
            return fail(tr("\"%1\" has a name part longer than the file system allows").arg(shown));
        if (isDeviceName(segment))
            return fail(tr("\"%1\" uses a name reserved for a device").arg(shown));
    }
    return true;
}

// Why a stored name may not be written below the drive root, or an empty text.
QString nameProblem(const QString &name, bool isFolder)
{
    const QString path = isFolder ? name.left(name.size() - 1) : name;
    if (path.isEmpty())
        return tr("an entry has an empty name");
    QString why;
    if (!pathProblem(path, name, &why))
        return tr("the entry %1").arg(why);
    return {};
}

bool refuse(QString *error, const QString &reason)
{
    if (error)
        *error = tr("This backup cannot be restored: %1.").arg(reason);
    return false;
}
} // namespace

bool check(QIODevice *zip, qint64 freeSpace, Listing *listing, QString *error)
{
    Listing result;
    QuaZip archive(zip);
    archive.setAutoClose(false);
    if (!zip || !archive.open(QuaZip::mdUnzip)) {
        if (error)
            *error = tr("Unable to open the backup. If problem persists the backup is probably corrupted.");
        return false;
    }
    if (archive.getEntriesCount() > kMaxEntries) {
        archive.close();
        return refuse(error, tr("it holds more than %1 entries").arg(kMaxEntries));
    }

    QSet<QString> seen; // case-folded paths without the folder slash
    QSet<QString> files;
    QSet<QString> parents;
    QString problem;
    for (bool more = archive.goToFirstFile(); more && problem.isEmpty(); more = archive.goToNextFile()) {
        ZipEntries::RawEntry raw;
        if (!ZipEntries::current(&archive, &raw)) {
            problem = tr("its list of entries is damaged");
            break;
        }
        const Entry &e = raw.entry;
        if (!raw.nameDecoded) {
            problem = tr("an entry name is not readable text (\"%1\")").arg(e.name);
            break;
        }
        problem = nameProblem(e.name, e.isFolder);
        if (!problem.isEmpty())
            break;
        const quint32 type = (raw.externalAttr >> 16) & kTypeMask;
        if (type != 0 && type != kRegular && type != kFolder) {
            problem = tr("the entry \"%1\" is a link or a device, not a file").arg(e.name);
            break;
        }
        if (raw.flags & 1) {
            problem = tr("the entry \"%1\" is encrypted").arg(e.name);
            break;
        }
        if (raw.method != 0 && raw.method != 8) {
            problem = tr("the entry \"%1\" is compressed in a way this program does not read").arg(e.name);
            break;
        }
        if (e.size < 0 || e.compressedSize < 0 || (raw.method == 0 && e.size != e.compressedSize) ||
            e.size > e.compressedSize * kMaxRatio + 1024 || (e.isFolder && e.size != 0)) {
            problem = tr("the entry \"%1\" declares sizes that do not fit its data").arg(e.name);
            break;
        }
        const QString path = e.isFolder ? e.name.left(e.name.size() - 1) : e.name;
        const QString key = path.toCaseFolded();
        if (seen.contains(key)) {
            problem = tr("the name \"%1\" is in it twice (names on the transmitter ignore case)").arg(path);
            break;
        }
        seen.insert(key);
        if (!e.isFolder)
            files.insert(key);
        for (int slash = key.indexOf(QLatin1Char('/')); slash > 0;
             slash = key.indexOf(QLatin1Char('/'), slash + 1))
            parents.insert(key.left(slash));
        if (e.name == QLatin1String("config/config.jsn"))
            result.hasConfig = true;
        if (e.name.compare(QLatin1String("Config/Backup.jsn"), Qt::CaseInsensitive) != 0)
            result.totalSize += e.size;
        if (result.totalSize > kMaxTotal) {
            problem = tr("its content is larger than any transmitter drive");
            break;
        }
        result.entries.append(e);
    }
    if (problem.isEmpty() && archive.getZipError() != UNZ_OK)
        problem = tr("its list of entries is damaged");
    archive.close();
    if (!problem.isEmpty())
        return refuse(error, problem);
    for (const QString &file : qAsConst(files)) {
        if (parents.contains(file))
            return refuse(error, tr("the name \"%1\" is both a file and a folder in it").arg(file));
    }
    if (freeSpace >= 0 && result.totalSize > freeSpace) {
        return refuse(error, tr("it needs %1 but the transmitter has %2 free")
                                 .arg(ModelTableModel::formatSize(result.totalSize),
                                      ModelTableModel::formatSize(freeSpace)));
    }
    if (listing)
        *listing = result;
    return true;
}

bool isSafeRelativePath(const QString &name, QString *why)
{
    return pathProblem(name, name, why);
}

} // namespace ArchiveCheck
