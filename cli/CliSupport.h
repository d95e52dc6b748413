#pragma once

#include <QString>

#include <cstdio>

class TelemetryDataPackage;
class TelemetryVar;
struct TelemetrySimplePair;

// What every vexo-log subcommand does alike: its error lines and how it reads a log.
namespace CliSupport {
// "vexo-log: <message>" on err. Returns 1, the exit code of a failure.
int fail(std::FILE *err, const QString &message);
// A worker's text made for a message box (a little HTML), as one plain line.
QString plainText(const QString &rich);
// "vexo-log: [<command>: ]<message>", then a blank line and the usage text. Returns 2, the exit code of
// bad usage.
int usage(std::FILE *err, const char *command, const QString &message, const char *usageText);

// Whether a log read only in part says what was lost: the commands that report on a log do, the exports
// say only whether they worked.
enum class Damage
{
    Say,
    Ignore,
};
// Reads a log through the same readers and dispatch as the studio (csv: as the data table's CSV export),
// with a sensor table of its own. False, the reason said on err, when nothing can be read.
bool readLog(std::FILE *err, const QString &path, TelemetryDataPackage *package, Damage damage,
             bool csv = false);

// Where a subcommand writes: its results on out, its errors on err, naming it and ending in its usage.
struct Output
{
    std::FILE *out;
    std::FILE *err;
    const char *command;
    const char *usageText;

    int fail(const QString &message) const { return CliSupport::fail(err, message); }
    int usage(const QString &message) const { return CliSupport::usage(err, command, message, usageText); }
    // UTF-8, flushed at once so progress shows while the command works.
    void print(const QString &text) const;
};

// "D:P": a variable named by its device id (decimal) and parameter number.
bool parseVariable(const QString &text, TelemetrySimplePair *pair);
// The variable of a log, or null when the log lacks it.
const TelemetryVar *findVariable(const TelemetryDataPackage &package, const TelemetrySimplePair &pair);
} // namespace CliSupport
