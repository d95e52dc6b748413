#pragma once

#include "link/TransmitterInfo.h"
#include "transmitter/DriveEnumerator.h"

#include <QHash>
#include <QStringList>

#include <memory>

class SerialPortWrapper;

// What one scan found changed since the scan before: each drive is reported once when it comes and
// once when it goes.
struct TransmitterChanges
{
    TransmitterInfoVector added;
    QStringList removed; // root paths
    bool isEmpty() const { return added.isEmpty() && removed.isEmpty(); }
};

// Finds transmitters among the removable drives: a drive holding a readable "Config/Config.jsn" with a
// hardware id. Keeps the transmitters of the previous scan, keyed by root path, for the object's life.
class TransmitterDetector
{
public:
    explicit TransmitterDetector(std::unique_ptr<DriveEnumerator> enumerator);

    TransmitterChanges scan();
    // The transmitters of the last scan, in the order they were found.
    TransmitterInfoVector transmitters() const { return m_current; }

    // Runs a detector over these drives on the wrapper's scan ticks and feeds the wrapper's
    // transmitter table.
    static void install(SerialPortWrapper *wrapper, std::unique_ptr<DriveEnumerator> enumerator);

private:
    struct Rejected
    {
        QString error;
        int scansLeft = 0;
    };
    // About once a second at the link's pace.
    static constexpr int kRetryScans = 40;

    std::unique_ptr<DriveEnumerator> m_enumerator;
    TransmitterInfoVector m_current;
    // Drives whose config file was refused, by root: read again only now and then, so a damaged file
    // is neither re-read on every scan nor reported more than once.
    QHash<QString, Rejected> m_rejected;
};
