#pragma once

#include <QByteArray>
#include <QCoreApplication>
#include <QHash>
#include <QJsonValue>
#include <QString>
#include <QStringList>

// The application settings, "config.jsn" in the data folder: keys written in a fixed order and read
// without regard to case. One instance per process, owned by the entry point.
class AppSettings
{
    Q_DECLARE_TR_FUNCTIONS(AppSettings)
public:
    static constexpr const char *kVersion = "1.1.0";

    // The keys, as written in the file.
    static inline const QString kVersionKey = QStringLiteral("Version");
    static inline const QString kOpenDir = QStringLiteral("Opendir");
    static inline const QString kExportDir = QStringLiteral("Exportdir");
    static inline const QString kPort = QStringLiteral("Port");
    static inline const QString kWindowState = QStringLiteral("Win-State");
    static inline const QString kWindowSize = QStringLiteral("Win-Size");
    static inline const QString kJoystick = QStringLiteral("Joy-GUID");
    static inline const QString kImagePath = QStringLiteral("Bmp-Export-Path");
    static inline const QString kImageWidth = QStringLiteral("Bmp-Export-Width");
    static inline const QString kImageHeight = QStringLiteral("Bmp-Export-Height");
    static inline const QString kAutoUpdate = QStringLiteral("AutoUpdate");
    static inline const QString kModelId = QStringLiteral("Model-ID");

    AppSettings();

    // The keys in the order they are written.
    static const QStringList &keys();
    static QString fileName() { return QStringLiteral("config.jsn"); }
    // The writable data folder (created when missing).
    static QString dataFolder();

    // False for a missing or damaged file; the values then stay at their defaults. Never fatal.
    bool load(const QString &path);
    // Written to a temporary file and renamed into place.
    bool save(const QString &path) const;
    bool isLoaded() const { return m_loaded; }
    QString lastError() const { return m_lastError; }

    QJsonValue value(const QString &key) const;
    void setValue(const QString &key, const QJsonValue &value);
    QString text(const QString &key) const { return value(key).toString(); }
    int number(const QString &key) const { return value(key).toInt(); }
    bool flag(const QString &key) const { return value(key).toBool(); }

    // Window state and geometry: the framework's bytes, percent-encoded into text.
    QByteArray bytes(const QString &key) const;
    void setBytes(const QString &key, const QByteArray &data);

    // The whole document as written, keys in order.
    QByteArray toJson() const;

private:
    QHash<QString, QJsonValue> m_values; // by lower-case key
    bool m_loaded = false;
    QString m_lastError;
};
