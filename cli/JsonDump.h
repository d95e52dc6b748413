#pragma once

#include <QByteArray>

#include <cstdio>

class TelemetryDataPackage;

// Streams a package as JSON without building a document: a long flight has millions of samples.
class JsonDump
{
public:
    // False when the output could not be written.
    static bool write(const TelemetryDataPackage &package, std::FILE *out);
    static void appendString(QByteArray &out, const QString &text);
    static void appendNumber(QByteArray &out, double value);
};
