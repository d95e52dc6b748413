#pragma once

#include "telemetry/LogReadReport.h"

#include <QByteArray>
#include <QCoreApplication>
#include <QString>

#include <cstring>
#include <functional>

class QIODevice;

// The line reading of the text log readers: the input is read in large chunks and its lines handed out
// in place, without a copy, and the reader keeps the count of lines read, damaged and cut off. A line
// ends at "\n"; a CR before it stays part of the line.
class ChunkedLineReader
{
    Q_DECLARE_TR_FUNCTIONS(ChunkedLineReader)
public:
    // What the handler made of a line: flags, so that a line may be read in part (Read | Damaged).
    enum Outcome
    {
        Ignored = 0, // neither data nor damage: a header, a comment, white space
        Read = 1,
        Damaged = 2,
    };
    // A line that fills the whole buffer.
    enum class LongLines
    {
        Skip,  // the buffer grows up to the longest line; a longer one is dropped and counted damaged
        Split, // the buffer's content is handed out as a line, and the rest of it as the next
    };
    // The last line when the input ends without its line feed.
    enum class LastLine
    {
        CutShort,     // any line that is not blank: the writer ends every line, so the file was cut
        CutIfDamaged, // only a line that does not read (its data carries a checksum of its own)
    };

    struct Line
    {
        const char *begin;
        const char *end; // before the "\n"
        qint64 number;   // from 1
        qint64 offset;   // of its first byte in the input
        bool terminated; // false for a last line without its line feed
    };

    // Called after every chunk with the bytes read and the total (-1 when unknown); false stops.
    using ProgressHandler = std::function<bool(qint64 done, qint64 total)>;

    static constexpr qint64 kChunkSize = 1 << 20;
    // With LongLines::Skip, a line longer than this is not a log line: it is skipped rather than buffered.
    static constexpr qint64 kMaxLineLength = 16 << 20;

    ChunkedLineReader(LongLines longLines, LastLine lastLine, qint64 chunkSize = kChunkSize,
                      qint64 maxLineLength = kMaxLineLength);

    // Bytes from the device's position to its end, -1 when it cannot tell (a pipe, a socket).
    static qint64 bytesLeft(const QIODevice *device);

    void setProgressHandler(ProgressHandler handler) { m_progress = std::move(handler); }

    // Reads the open device to its end, calling handler(const Line &) for each line; it returns the line's
    // Outcome flags. The report starts afresh. False on a read error (errorString() says it) or when the
    // progress handler stopped the reading (errorString() empty).
    template <class Handler> bool read(QIODevice *device, Handler &&handler);

    const LogReadReport &report() const { return m_report; }
    QString errorString() const { return m_error; }

    // White space only (a CR left of a CRLF, indentation).
    static bool isBlank(const char *begin, const char *end);

private:
    void start(QIODevice *device);
    // Reads the next chunk behind the bytes kept from the last one and sets m_begin, m_end and m_atEnd.
    bool fill();
    // Keeps the unfinished line at p for the next chunk. True when it fills the buffer and is to be
    // handed out as a line as it stands (LongLines::Split).
    bool keep(const char *p);
    Line line(const char *begin, const char *end, bool terminated)
    {
        return {begin, end, ++m_report.lines, m_bufferStart + (begin - m_buffer.constData()), terminated};
    }
    void count(const Line &line, int outcome)
    {
        if (outcome & Read)
            ++m_report.readLines;
        if (outcome & Damaged)
            m_report.skip(line.number);
    }
    // The last line's outcome once the missing line feed is taken into account.
    int lastOutcome(const Line &line, int outcome);

    const LongLines m_longLines;
    const LastLine m_lastLine;
    const qint64 m_chunkSize;
    const qint64 m_maxLineLength;
    ProgressHandler m_progress;
    LogReadReport m_report;
    QString m_error;

    QIODevice *m_device = nullptr;
    QByteArray m_buffer;
    qint64 m_total = -1;
    qint64 m_carry = 0;       // bytes of an unfinished line kept at the buffer's start
    qint64 m_readTotal = 0;   // bytes read from the device
    qint64 m_bufferStart = 0; // input offset of the buffer's first byte
    bool m_skipping = false;  // inside an overlong line, dropping bytes up to its end
    const char *m_begin = nullptr;
    const char *m_end = nullptr;
    bool m_atEnd = false;
};

template <class Handler> bool ChunkedLineReader::read(QIODevice *device, Handler &&handler)
{
    start(device);
    for (;;) {
        if (!fill())
            return false;
        // The counts stay in locals through a chunk, as the handler's calls could touch the members, and
        // a line read in full (most of them) costs a single test.
        // A line's input offset is its address shifted by this.
        const qint64 shift = m_bufferStart - qint64(quintptr(m_buffer.constData()));
        const qint64 firstNumber = m_report.lines;
        qint64 number = firstNumber;
        qint64 notRead = 0;
        const char *p = m_begin;
        const char *const end = m_end;
        while (p < end) {
            const char *nl = static_cast<const char *>(std::memchr(p, '\n', size_t(end - p)));
            if (!nl)
                break;
            const int outcome = handler(Line{p, nl, ++number, qint64(quintptr(p)) + shift, true});
            if (Q_UNLIKELY(outcome != Read)) {
                notRead += (outcome & Read) ? 0 : 1;
                if (outcome & Damaged)
                    m_report.skip(number);
            }
            p = nl + 1;
        }
        m_report.lines = number;
        m_report.readLines += number - firstNumber - notRead;
        if (m_atEnd) {
            if (p < end) {
                const Line l = line(p, end, false);
                count(l, lastOutcome(l, handler(l)));
            }
            return true;
        }
        if (keep(p)) {
            const Line l = line(m_buffer.constData(), m_buffer.constData() + m_carry, true);
            count(l, handler(l));
            m_carry = 0;
        }
        if (m_progress && !m_progress(m_readTotal, m_total))
            return false;
    }
}
