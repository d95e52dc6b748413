#pragma once

#include "telemetry/LogFileLoader.h"

// The XML log (".vml"): "dataStorage" elements are devices, their "attrDescription" elements variables
// and their "entity" elements value lines in the native syntax without the device id, which is taken
// from the storage. Elements are found by tag name wherever they stand.
class VMLLogLoader : public LogFileLoader
{
    Q_DECLARE_TR_FUNCTIONS(VMLLogLoader)
public:
    // The document is held as a DOM, about twenty times its size in memory: larger inputs are refused.
    static constexpr qint64 kMaxBytes = 64LL << 20;
    // Logs are a few levels deep; far deeper nesting only serves to exhaust the DOM parser.
    static constexpr int kMaxDepth = 256;

    explicit VMLLogLoader(SensorTable *sensors = nullptr);

    // False, the package untouched, when the device is not open, the input is too large, is not
    // well-formed XML, declares entities, nests too deeply or holds no "dataStorage" element.
    bool load(QIODevice *device, TelemetryDataPackage *package) override;

    // The streaming check run before the DOM sees the bytes; false with the reason in *error.
    static bool screen(const QByteArray &xml, QString *error);
};
