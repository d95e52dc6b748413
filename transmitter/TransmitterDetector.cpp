#include "transmitter/TransmitterDetector.h"

#include "link/SerialPortWrapper.h"
#include "transmitter/TransmitterConfig.h"

#include <QDebug>
#include <QFileInfo>

#include <algorithm>

TransmitterDetector::TransmitterDetector(std::unique_ptr<DriveEnumerator> enumerator)
    : m_enumerator(std::move(enumerator))
{
}

TransmitterChanges TransmitterDetector::scan()
{
    const QStringList roots = m_enumerator->removableRoots();
    TransmitterChanges changes;
    TransmitterInfoVector current;
    for (const QString &root : roots) {
        const auto known = std::find_if(m_current.cbegin(), m_current.cend(),
                                        [&](const TransmitterInfo &t) { return t.rootPath == root; });
        // A known transmitter is not read again; it stays while its drive and its config file do.
        if (known != m_current.cend()) {
            if (QFileInfo::exists(TransmitterConfig::path(root)))
                current << *known;
            continue;
        }
        const auto rejected = m_rejected.find(root);
        if (rejected != m_rejected.end() && --rejected->scansLeft > 0)
            continue;
        TransmitterInfo info;
        QString error;
        if (TransmitterConfig::read(root, &info, &error)) {
            m_rejected.remove(root);
            current << info;
            changes.added << info;
        } else if (QFileInfo::exists(TransmitterConfig::path(root))) {
            if (rejected == m_rejected.end() || rejected->error != error)
                qDebug().noquote() << "Transmitter drive refused:" << error;
            m_rejected.insert(root, {error, kRetryScans});
        } else {
            m_rejected.remove(root);
        }
    }
    for (const TransmitterInfo &old : qAsConst(m_current)) {
        const bool kept = std::any_of(current.cbegin(), current.cend(),
                                      [&](const TransmitterInfo &t) { return t.rootPath == old.rootPath; });
        if (!kept)
            changes.removed << old.rootPath;
    }
    for (auto it = m_rejected.begin(); it != m_rejected.end();)
        it = roots.contains(it.key()) ? std::next(it) : m_rejected.erase(it);
    m_current = current;
    return changes;
}

void TransmitterDetector::install(SerialPortWrapper *wrapper, std::unique_ptr<DriveEnumerator> enumerator)
{
    auto detector = std::make_shared<TransmitterDetector>(std::move(enumerator));
    // Runs on the serial thread under the wrapper's mutex; the wrapper announces the changes queued.
    wrapper->setDriveScan([wrapper, detector] {
        const TransmitterChanges changes = detector->scan();
        for (const QString &root : changes.removed)
            wrapper->removeTransmitter(root);
        for (const TransmitterInfo &info : changes.added)
            wrapper->addTransmitter(info);
    });
}
