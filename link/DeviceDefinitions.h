#pragma once

// What the studio knows about each kind of LX Bus device: its registers (parameters), its menu pages,
// its commands and the expressions those pages use. Device makers write one readable JSON file per
// device kind (the format is described in link/definitions/README.md); `vexo-log devdef compile` checks
// them and packs them into "Devices/Devices.bin", which the studio reads at run time.
//
// Devices.bin layout (integers big-endian):
//   offset  0   8 bytes  magic "VXDEVDEF"
//   offset  8   4 bytes  format version (kFormatVersion)
//   offset 12   4 bytes  payload length in bytes (at most kMaxPayload)
//   offset 16  32 bytes  SHA-256 of the payload
//   offset 48            payload: CBOR, a map {"devices": [definition, ...]} with each definition in the
//                        normalised form of the source format
// Reading checks every one of these before the payload is parsed, and the parsed definitions get the same
// strict checks as a source file, so a file that was altered and re-hashed is refused just as clearly.

#include "link/Device.h"

#include <QCoreApplication>
#include <QPair>
#include <QString>
#include <QStringList>
#include <QVariantMap>
#include <QVector>

struct DeviceParameter
{
    int id = 0;
    quint16 address = 0; // first register; the value takes `size` registers from here
    int size = 1;        // bytes, 1..4
    bool isSigned = false;
    int decimals = 0; // the raw value is shown divided by 10^decimals
    qint64 min = 0;   // raw values
    qint64 max = 0;
    qint64 defaultValue = 0;
    bool readOnly = false;
    QString name;
    QString description;
    QVector<QPair<qint64, QString>> choices; // raw value, its text; empty for a plain number

    bool operator==(const DeviceParameter &o) const;
    bool operator!=(const DeviceParameter &o) const { return !(*this == o); }
};

// One component of a page: its kind ("Row", "Label", "Link", "Command", "Int", "Select", "Channel",
// "Date", "Time", "Chart", "Bitmap", "Button") and the properties handed to it by their page names
// ("pFont", "pWidth", ... "pKeyValues"). Integers are int, "pFloatValue" a double, texts QString,
// "enabled" a bool, "visible" a bool or an expression text, "pKeyValues" a list of [value, text] lists.
struct DevicePageElement
{
    QString kind;
    QVariantMap properties;

    bool operator==(const DevicePageElement &o) const { return kind == o.kind && properties == o.properties; }
    bool operator!=(const DevicePageElement &o) const { return !(*this == o); }
};

struct DevicePage
{
    int id = 0;
    QString title;
    QVector<DevicePageElement> elements; // in the order the page builds them

    bool operator==(const DevicePage &o) const
    {
        return id == o.id && title == o.title && elements == o.elements;
    }
    bool operator!=(const DevicePage &o) const { return !(*this == o); }
};

struct DeviceCommand
{
    enum Flag
    {
        Confirm = 4 // the user is asked before the command runs
    };
    // A command is run by writing its value to an address of its own, above every register: the device
    // answers with that address, which the master takes as the confirmation.
    static constexpr int kAddressBase = 0xF000;
    static constexpr int kMaxId = 0x0FFF;
    static constexpr int kValueSize = 2; // bytes of the value written, little-endian

    int id = 0;
    QString text;
    int flags = 0;
    int value = 0;

    quint16 address() const { return quint16(kAddressBase + id); }

    bool operator==(const DeviceCommand &o) const
    {
        return id == o.id && text == o.text && flags == o.flags && value == o.value;
    }
    bool operator!=(const DeviceCommand &o) const { return !(*this == o); }
};

struct DeviceDefinition
{
    QString name;
    QVector<quint16> hardware; // the hardware values (from identification) this definition serves
    int firmwareMajor = 0;     // the oldest firmware the definition works with
    int firmwareMinor = 0;
    QVector<DeviceParameter> parameters;
    QVector<DevicePage> pages; // the first one is the start page
    QVector<DeviceCommand> commands;

    // True when firmware major.minor is older than these definitions need.
    bool needsNewerFirmware(int major, int minor) const
    {
        return major < firmwareMajor || (major == firmwareMajor && minor < firmwareMinor);
    }
    const DeviceParameter *parameter(int id) const;
    const DevicePage *page(int id) const;
    const DeviceCommand *command(int id) const;
    // Every expression the pages evaluate: visibility of a component, dynamic label texts and channel texts.
    QStringList expressions() const;

    bool operator==(const DeviceDefinition &o) const;
    bool operator!=(const DeviceDefinition &o) const { return !(*this == o); }
};

class DeviceDefinitions
{
    Q_DECLARE_TR_FUNCTIONS(DeviceDefinitions)
public:
    static constexpr quint32 kFormatVersion = 1;
    static constexpr int kHeaderSize = 48;
    static constexpr qint64 kMaxPayload = 16 * 1024 * 1024;
    static const char kMagic[9];

    // Every property a page element may carry, by the names the page components take.
    static const QStringList &propertyNames();
    static const QStringList &elementKinds();

    const QVector<DeviceDefinition> &devices() const { return m_devices; }
    bool isEmpty() const { return m_devices.isEmpty(); }

    // The definition for a device kind, by the hardware value its identification reports; null if unknown.
    const DeviceDefinition *find(quint16 hardware) const;
    const DeviceDefinition *find(const Device &device) const { return find(device.hardware); }

    // Reads source files (one device, or a list of devices as `dump` prints, per file) and checks them
    // together. False with "file: item: reason" on the first fault.
    bool addSource(const QByteArray &json, const QString &fileName, QString *error);
    bool addSourceFile(const QString &path, QString *error);

    // The container (see above), and the definitions as source text (a list of devices), ready to compile.
    QByteArray toContainer() const;
    QByteArray toSourceText() const;

    // Reads a container. On failure error is "Error loading device configuration file: <reason>".
    bool readContainer(const QByteArray &bytes, QString *error);
    bool load(const QString &path, QString *error);
    // Only the payload, as found after a good header and checksum.
    bool readPayload(const QByteArray &cbor, QString *error);

    // Where the studio looks for the definitions, in order: beside the program, then the installed share
    // folder. appDir is the program's folder.
    static QStringList searchPaths(const QString &appDir);
    // The first of searchPaths() that exists, or empty.
    static QString locate(const QString &appDir);
    static QString loadErrorMessage(const QString &reason);

private:
    // Each gives the reason a container or payload is refused; empty when it was read.
    QString containerFault(const QByteArray &bytes);
    QString payloadFault(const QByteArray &cbor);

    QVector<DeviceDefinition> m_devices;
    QStringList m_sources; // the file each device came from, for errors naming both of a clash
};
