#include "link/DeviceParameterEngine.h"

#include "link/LxBusProtocol.h"
#include "link/LxFrame.h"

#include <QCoreApplication>

#include <algorithm>

namespace {
void appendGroupHead(QByteArray *data, quint16 address)
{
    data->append(char(address & 0xFF)).append(char(address >> 8)).append('\0');
}
} // namespace

DeviceParameterEngine::DeviceParameterEngine(LxBusProtocol *protocol, QObject *parent)
    : QObject(parent), m_protocol(protocol)
{
}

void DeviceParameterEngine::clear()
{
    m_jobs.clear();
}

void DeviceParameterEngine::setActive(const DeviceSettings &settings)
{
    clear();
    m_protocol->setActiveDevice(settings);
    m_seen = false;
    m_missingMs = 0;
    if (settings.deviceId != 0)
        readAll();
}

void DeviceParameterEngine::readAll()
{
    const DeviceSettings &s = m_protocol->activeDevice();
    if (s.deviceId == 0 || s.params.isEmpty())
        return;
    QVector<int> all(s.params.size());
    for (int i = 0; i < all.size(); ++i)
        all[i] = i;
    Job job;
    job.requests = planReads(s.params, all);
    m_jobs.enqueue(job);
}

QString DeviceParameterEngine::write(const DevParamVector &params)
{
    DeviceSettings &s = m_protocol->activeDevice();
    if (s.deviceId == 0)
        return tr("No device is selected.");
    QVector<int> indexes;
    QVector<qint32> values;
    for (const DevParam &p : params) {
        const int i = s.indexOf(p.address);
        if (i < 0)
            return tr("The device has no parameter at address 0x%1.").arg(p.address, 4, 16, QLatin1Char('0'));
        DevParam asDevice = s.params.at(i);
        asDevice.value = p.value;
        const QString why = asDevice.refusal(asDevice.raw());
        if (!why.isEmpty())
            return tr("The parameter at address 0x%1 cannot be written: %2.")
                .arg(p.address, 4, 16, QLatin1Char('0'))
                .arg(why);
        if (!indexes.contains(i)) {
            indexes.append(i);
            values.append(p.value);
        }
    }
    if (indexes.isEmpty())
        return QString();
    for (int k = 0; k < indexes.size(); ++k) {
        DevParam &p = s.params[indexes.at(k)];
        p.sent = values.at(k);
        p.confirmed = false;
    }
    Job job;
    job.write = true;
    job.written = indexes;
    job.requests = planWrites(s.params, indexes);
    job.requests += planReads(s.params, indexes);
    m_jobs.enqueue(job);
    return QString();
}

bool DeviceParameterEngine::command(int address, int value, int size, int flags)
{
    const quint32 device = m_protocol->activeDevice().deviceId;
    if (device == 0 || size < 1 || size > 4 || address < 0 || address > 0xFFFF)
        return false;
    quint8 data[7] = {quint8(address & 0xFF), quint8(address >> 8), quint8(size)};
    for (int b = 0; b < size; ++b)
        data[3 + b] = quint8(quint32(value) >> (8 * b));
    return m_protocol->queueWrite(device, quint8(flags), data, 3 + size, kSendsPerTry);
}

bool DeviceParameterEngine::deviceGone(int elapsedMs)
{
    const quint32 id = m_protocol->activeDevice().deviceId;
    bool present = false;
    for (const Device &d : m_protocol->devices())
        present = present || d.identifier == id;
    if (present) {
        m_seen = true;
        m_missingMs = 0;
        return false;
    }
    m_missingMs += elapsedMs;
    if (!m_seen)
        return false;
    m_seen = false;
    return true;
}

void DeviceParameterEngine::tick(int elapsedMs)
{
    const DeviceSettings &s = m_protocol->activeDevice();
    if (s.deviceId == 0)
        return;
    if (deviceGone(elapsedMs)) {
        fail(tr("LX Bus: Device disconnected"));
        return;
    }
    if (m_jobs.isEmpty())
        return;
    Job &job = m_jobs.head();
    const Request &r = job.requests.at(job.next);
    const quint8 type = r.write ? LxFrame::kTypeWrite : LxFrame::kTypeRead;
    const QString failure =
        job.write ? tr("LX Bus: Error writing device") : tr("LX Bus: Error reading device");
    if (job.packetId < 0) {
        const auto *data = reinterpret_cast<const quint8 *>(r.data.constData());
        const bool queued =
            r.write ? m_protocol->queueWrite(s.deviceId, 0, data, r.data.size(), kSendsPerTry, &job.packetId)
                    : m_protocol->queueRead(s.deviceId, data, r.data.size(), kSendsPerTry, &job.packetId);
        if (queued) {
            job.waitedMs = 0;
        } else {
            job.packetId = -1;
            job.waitedMs += elapsedMs;
            if (job.waitedMs > kQueueWaitMs)
                fail(failure);
        }
        return;
    }
    switch (m_protocol->takeRequest(job.packetId, type)) {
    case LxBusProtocol::RequestState::Waiting:
        job.waitedMs += elapsedMs;
        if (job.waitedMs <= kAnswerWaitMs)
            return;
        break; // the bus went quiet: count it as a lost try (the slot expires on its own)
    case LxBusProtocol::RequestState::Answered:
        job.packetId = -1;
        job.tries = 0;
        if (++job.next == job.requests.size()) {
            Job done = m_jobs.dequeue();
            finish(done);
        }
        return;
    case LxBusProtocol::RequestState::Gone:
        break;
    }
    job.packetId = -1;
    job.waitedMs = 0;
    if (++job.tries >= kTries)
        fail(failure);
}

void DeviceParameterEngine::finish(Job &job)
{
    if (!job.write)
        return;
    DeviceSettings &s = m_protocol->activeDevice();
    DevParamVector report;
    for (int i : job.written) {
        DevParam &p = s.params[i];
        p.confirmed = p.loaded && p.value == p.sent;
        report.append(p);
    }
    emit writeFinished(report);
}

void DeviceParameterEngine::fail(const QString &text)
{
    // Whatever was being written is reported as not taken; its parameters count as unknown until read.
    DeviceSettings &s = m_protocol->activeDevice();
    for (const Job &job : qAsConst(m_jobs)) {
        if (!job.write)
            continue;
        DevParamVector report;
        for (int i : job.written) {
            DevParam &p = s.params[i];
            p.confirmed = false;
            p.loaded = false;
            report.append(p);
        }
        emit writeFinished(report);
    }
    clear();
    emit error(text);
}

QVector<DeviceParameterEngine::Request> DeviceParameterEngine::planReads(const DevParamVector &params,
                                                                         QVector<int> indexes)
{
    return plan(params, std::move(indexes), false);
}

QVector<DeviceParameterEngine::Request> DeviceParameterEngine::planWrites(const DevParamVector &params,
                                                                          QVector<int> indexes)
{
    return plan(params, std::move(indexes), true);
}

// Greedy in address order: a parameter joins the current group when its registers follow the group's
// last ones, else opens a new group (3 bytes of head); a request closes when the next one does not fit.
QVector<DeviceParameterEngine::Request> DeviceParameterEngine::plan(const DevParamVector &params,
                                                                    QVector<int> indexes, bool write)
{
    std::sort(indexes.begin(), indexes.end(),
              [&](int a, int b) { return params.at(a).address < params.at(b).address; });
    indexes.erase(std::unique(indexes.begin(), indexes.end()), indexes.end());
    const int budget = write ? kWriteBudget : kReadBudget;
    QVector<Request> out;
    Request r;
    int used = 0;
    int groupHead = -1; // offset of the current group's head in r.data
    int groupEnd = -1;  // the register after the current group's last one
    for (int i : indexes) {
        const DevParam &p = params.at(i);
        const int width = p.width;
        const bool joins = groupHead >= 0 && p.address == groupEnd && used + width <= budget;
        if (!joins && used + 3 + width > budget && !r.params.isEmpty()) {
            out.append(r);
            r = Request();
            used = 0;
        }
        if (!joins || r.params.isEmpty()) {
            groupHead = r.data.size();
            appendGroupHead(&r.data, p.address);
            used += 3;
        }
        r.params.append(i);
        used += width;
        r.data[groupHead + 2] = char(quint8(r.data.at(groupHead + 2)) + width);
        if (write) {
            for (int b = 0; b < width; ++b)
                r.data.append(char(quint32(p.sent) >> (8 * b)));
        }
        groupEnd = p.address + width;
    }
    if (!r.params.isEmpty())
        out.append(r);
    for (Request &q : out)
        q.write = write;
    return out;
}

int DeviceParameterEngine::minimumReads(const DevParamVector &params, QVector<int> indexes)
{
    std::sort(indexes.begin(), indexes.end(),
              [&](int a, int b) { return params.at(a).address < params.at(b).address; });
    int bytes = 0;
    int runs = 0;
    int end = -1;
    for (int i : indexes) {
        const DevParam &p = params.at(i);
        bytes += p.width;
        runs += p.address == end ? 0 : 1;
        end = p.address + p.width;
    }
    // Every request needs at least one group head, and every run at least one.
    for (int k = 1;; ++k) {
        if (bytes + 3 * std::max(k, runs) <= kReadBudget * k)
            return bytes == 0 ? 0 : k;
    }
}
