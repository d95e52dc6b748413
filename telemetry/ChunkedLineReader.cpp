#include "telemetry/ChunkedLineReader.h"

#include <QIODevice>

#include <algorithm>

ChunkedLineReader::ChunkedLineReader(LongLines longLines, LastLine lastLine, qint64 chunkSize,
                                     qint64 maxLineLength)
    : m_longLines(longLines), m_lastLine(lastLine), m_chunkSize(std::max<qint64>(chunkSize, 1)),
      m_maxLineLength(maxLineLength)
{
}

qint64 ChunkedLineReader::bytesLeft(const QIODevice *device)
{
    return device->isSequential() ? -1 : device->size() - device->pos();
}

bool ChunkedLineReader::isBlank(const char *begin, const char *end)
{
    return std::all_of(begin, end, [](char c) { return c == ' ' || (c >= '\t' && c <= '\r'); });
}

void ChunkedLineReader::start(QIODevice *device)
{
    m_device = device;
    m_total = bytesLeft(device);
    m_report = LogReadReport();
    m_error.clear();
    // Small inputs (database blobs, tests) need no full-size chunk.
    const qint64 size =
        m_total >= 0 ? std::min(m_chunkSize, std::max<qint64>(m_total + 1, 4096)) : m_chunkSize;
    m_buffer = QByteArray(int(size), Qt::Uninitialized);
    m_carry = 0;
    m_readTotal = 0;
    m_bufferStart = 0;
    m_skipping = false;
    m_atEnd = false;
}

bool ChunkedLineReader::fill()
{
    for (;;) {
        const qint64 n = m_device->read(m_buffer.data() + m_carry, m_buffer.size() - m_carry);
        if (n < 0) {
            m_error = tr("Read error: %1").arg(m_device->errorString());
            return false;
        }
        if (n == 0 && m_device->isSequential() && !m_device->atEnd() && m_device->waitForReadyRead(30000))
            continue;
        m_atEnd = n == 0;
        m_bufferStart = m_readTotal - m_carry;
        m_readTotal += n;
        m_begin = m_buffer.constData();
        m_end = m_begin + m_carry + n;
        if (m_skipping) {
            const char *nl = static_cast<const char *>(std::memchr(m_begin, '\n', size_t(m_end - m_begin)));
            if (!nl) {
                m_carry = 0;
                if (!m_atEnd)
                    continue;
                m_begin = m_end;
                return true;
            }
            m_skipping = false;
            m_begin = nl + 1;
        }
        return true;
    }
}

bool ChunkedLineReader::keep(const char *p)
{
    m_carry = m_end - p;
    if (m_carry > 0 && p != m_buffer.constData())
        std::memmove(m_buffer.data(), p, size_t(m_carry));
    if (m_carry < m_buffer.size())
        return false;
    if (m_longLines == LongLines::Split)
        return true;
    if (m_buffer.size() >= m_maxLineLength) {
        m_report.skip(++m_report.lines);
        m_skipping = true;
        m_carry = 0;
    } else {
        m_buffer.resize(m_buffer.size() * 2);
    }
    return false;
}

int ChunkedLineReader::lastOutcome(const Line &line, int outcome)
{
    // A cut-off line is reported once, as the truncation, and not again as a damaged line.
    const bool cut =
        m_lastLine == LastLine::CutShort ? !isBlank(line.begin, line.end) : (outcome & Damaged) != 0;
    if (cut) {
        m_report.truncated = true;
        outcome &= ~Damaged;
    }
    return outcome;
}
