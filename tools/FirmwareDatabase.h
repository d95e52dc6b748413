#pragma once

#include <QByteArray>
#include <QCoreApplication>
#include <QDateTime>
#include <QList>
#include <QPair>
#include <QString>
#include <QStringList>
#include <QVector>

// The device updates database: an SQLite file with one row per firmware image in the table "files"
// (hw_id, sw_id, variant, name, desc_<language>..., date, data). The studio only reads it, through the
// "Updater" connection; addFirmware() builds or extends one for makers and tests.
//
// The release notes come in the interface language where the file has that column and the row has a
// text, else in English ("desc_en", always present).
class FirmwareDatabase
{
    Q_DECLARE_TR_FUNCTIONS(FirmwareDatabase)
public:
    static constexpr const char *kConnectionName = "Updater";

    // The newest firmware of one device and variant (the dialog's "Name" / "Version" list).
    struct Overview
    {
        int hwId = 0;
        QString name;
        int version = 0;
        QString description; // every release note of the device and variant, newest first
    };
    // One firmware image, without its data.
    struct Firmware
    {
        int swId = 0;
        int variant = 0;
        QString name;
        QString description;
        QString date; // as stored; displayDate() shows it
    };
    // A row to add with addFirmware(). descriptions: language code -> text; "en" is required.
    struct Entry
    {
        int hwId = 0;
        int swId = 0;
        int variant = 0;
        QString name;
        QList<QPair<QString, QString>> descriptions;
        QString date;
        QByteArray data;
    };

    // The file in the data folder where the update check saves the database.
    static QString pathIn(const QString &dataFolder);
    // The interface language code ("en", "de", ...) of the running program.
    static QString interfaceLanguage();
    // A release date as written by makers: "yyyy-MM-dd", with " hh:mm[:ss]" or an ISO "T" time; invalid
    // when unreadable.
    static QDateTime parseDate(const QString &text);
    // A firmware version as a person writes it: "major.minor" (each 0..255: the high and low byte of the
    // number the devices report) or the 16-bit number itself.
    static bool parseVersion(const QString &text, int *version);
    // A stored date as the dialog shows it ("yyyy-M-d hh:mm:ss"); unreadable dates are shown as stored.
    static QString displayDate(const QString &stored);

    explicit FirmwareDatabase(const QString &language = interfaceLanguage());
    ~FirmwareDatabase();
    FirmwareDatabase(const FirmwareDatabase &) = delete;
    FirmwareDatabase &operator=(const FirmwareDatabase &) = delete;

    // Opens the file read-only. False with lastError() "Device database doesn't exist" for a missing
    // file, or a reason for a file that is not a database or lacks the "files" table.
    bool open(const QString &path);
    void close();
    bool isOpen() const { return m_open; }
    QString lastError() const { return m_error; }
    // The language whose notes are read: the one asked for, or "en" when the file has no such column.
    QString language() const { return m_language; }

    QVector<Overview> overview();
    // Every firmware of a device, by variant, newest first within each.
    QVector<Firmware> firmwares(int hwId);
    // The newest firmware of a device (of one variant, or of any when variant < 0); false when none.
    bool newest(int hwId, int variant, Firmware *out);
    // The release notes of a device and variant up to a version, newest first.
    QStringList releaseNotes(int hwId, int variant, int swId);
    // The image; false with lastError() "Update not found" when there is no such row.
    bool image(int hwId, int variant, int swId, QByteArray *data);

    // Builds path, or extends it when it already is a firmware database, with the entries, and replaces
    // it atomically: on any failure the old file is left as it was. Entries whose device, variant and
    // version are already there are refused, as are empty names, a missing English text and language
    // codes that are not letters, unreadable dates and images that FirmwareImage refuses. Dates are stored
    // as "yyyy-MM-dd hh:mm:ss".
    static bool addFirmware(const QString &path, const QVector<Entry> &entries, QString *error);

private:
    bool fail(const QString &error);
    QString localized(const QString &locale, const QString &fallback) const;

    QString m_requested;
    QString m_language;
    QString m_error;
    bool m_open = false;
};
