#pragma once

// A device's settings saved to a file, and the comparison of such a file with a device before its values
// are written back. Used by the parameter table and by `vexo-log params`.
//
// The file is UTF-8 JSON:
//   {
//     "format": "vexo-device-settings",        // required, exactly this text
//     "version": 1,                             // required; a newer version is refused
//     "device": {
//       "name": "RX 8",                         // the device's name when it was saved
//       "identifier": "A1B2C3D4",               // the bus identifier, hexadecimal text
//       "hardware": 5,                          // the hardware value; decides which devices may take it
//       "firmware": "1.2"                       // major.minor
//     },
//     "parameters": [                           // the parameters that had been read, in address order
//       {"id": 7, "name": "Gain", "address": 16, "decimals": 1, "value": 12.5, "raw": 125}
//     ]
//   }
// "value" is the number as the user sees it (raw / 10^decimals) and is what an import writes, converted with
// the decimals the device's definition has now. "raw" and "decimals" are optional; when "raw" is present it
// must agree with "value", so a file edited by hand cannot say two things at once. Parameter ids are unique.

#include "link/Device.h"
#include "link/DeviceSettings.h"

#include <QByteArray>
#include <QCoreApplication>
#include <QString>
#include <QVector>

struct DeviceDefinition;
struct DeviceParameter;

class DeviceSettingsFile
{
    Q_DECLARE_TR_FUNCTIONS(DeviceSettingsFile)
public:
    static constexpr int kVersion = 1;
    static constexpr qint64 kMaxBytes = 4 * 1024 * 1024;
    static const char kFormat[];

    struct Entry
    {
        int id = 0;
        QString name;
        quint16 address = 0;
        int decimals = 0;
        double value = 0;
        qint64 raw = 0;
    };

    // One line of the comparison of a file with a device.
    struct DiffRow
    {
        enum Side
        {
            Both,
            OnlyOnDevice,
            OnlyInFile
        };
        int id = 0;
        QString name;
        QString deviceText; // empty when the device has not been read or lacks the parameter
        QString fileText;   // empty when the file lacks the parameter
        Side side = Both;
        bool differs = false;
        bool writable = false;
        QString refusal; // why the file's value cannot be written ("" when writable or only on the device)
        quint16 address = 0;
        qint64 fileRaw = 0; // the file's value in the device's raw units (rows with a file value)
    };

    QString deviceName;
    quint32 identifier = 0;
    quint16 hardware = 0;
    int firmwareMajor = 0;
    int firmwareMinor = 0;
    QVector<Entry> parameters;

    // The loaded parameters of a device; those not yet read are left out.
    static DeviceSettingsFile build(const Device &device, const DeviceDefinition &definition,
                                    const DevParamVector &params);

    QByteArray toJson() const;
    // False with a reason naming the first fault; out is changed only on success.
    static bool fromJson(const QByteArray &json, DeviceSettingsFile *out, QString *error);
    // Written through a temporary file, so an existing file is replaced whole or not at all.
    bool save(const QString &path, QString *error) const;
    static bool load(const QString &path, DeviceSettingsFile *out, QString *error);

    // The file compared with a device's current values, in the device's address order, then what only the
    // file has. False (error says why) when the file belongs to a kind of device the definition does not
    // serve. Values equal at the parameter's decimals do not differ.
    static bool diff(const DeviceDefinition &definition, const DevParamVector &device,
                     const DeviceSettingsFile &file, QVector<DiffRow> *rows, QString *error);
    // The device's parameters set to the file's values of the chosen rows, ready for a write; rows that are
    // not writable are skipped.
    static DevParamVector toWrite(const QVector<DiffRow> &rows, const DevParamVector &device);

    // A raw value as shown: the choice's text, or the number with the parameter's decimals.
    static QString valueText(const DeviceParameter &parameter, qint64 raw);
    // A shown number in raw units, rounded to the decimals; far out-of-range numbers saturate (and are then
    // refused by the limits) instead of overflowing.
    static qint64 rawFromShown(double value, int decimals);
    // The register value as the unsigned or signed number it stands for.
    static qint64 rawOf(const DevParam &param);
};
