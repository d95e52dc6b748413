#pragma once

#include "transmitter/AppManifest.h"
#include "transmitter/TxCatalogue.h"

#include <QAbstractListModel>
#include <QHash>
#include <QImage>
#include <QPixmap>

// The Lua apps of "apps.json", one row each, with what the drive says about them: the installed version
// (from the apps' manifests), whether the connected transmitter is among the supported ones, whether an
// update is offered. The preview pictures arrive later; until then, and for an app without one, the
// decoration is the Lua logo.
class AppsListModel : public QAbstractListModel
{
    Q_OBJECT
public:
    enum Role
    {
        AppIdRole = Qt::UserRole + 1,
        NameRole,
        AuthorRole,
        VersionRole,
        InstalledVersionRole, // empty when not installed
        DescriptionRole,
        ReleaseDateRole,
        SupportedModelsRole, // QStringList of model names
        InstalledRole,
        CompatibleRole,
        UpdatableRole, // installed, and the list offers another version (or the last install ended early)
        LuaLogoRole,   // the decoration is the Lua logo (no preview picture, or none loaded yet)
        PreviewUrlRole,
    };

    explicit AppsListModel(QObject *parent = nullptr);

    int rowCount(const QModelIndex &parent = QModelIndex()) const override;
    QVariant data(const QModelIndex &index, int role = Qt::DisplayRole) const override;

    void setApps(const QVector<TxCatalogue::App> &apps);
    const QVector<TxCatalogue::App> &apps() const { return m_apps; }
    // The manifests found on the drive, by app id.
    void setInstalled(const QHash<int, AppManifest> &installed);
    void setConnectedHardware(int hwId);
    // The picture of every app whose "previewIcon" is url.
    void setPreview(const QUrl &url, const QImage &image);

    // -1 when the app is not listed.
    int rowOf(int appId) const;
    const TxCatalogue::App &appAt(int row) const { return m_apps.at(row); }

    // The Lua logo, drawn (a planet with its moon and the name), size × size pixels.
    static QImage luaLogo(int size);
    static constexpr int IconSize = 48;

private:
    bool isUpdatable(const TxCatalogue::App &app) const;

    QVector<TxCatalogue::App> m_apps;
    QHash<int, AppManifest> m_installed;
    QHash<QString, QPixmap> m_previews; // by URL text, scaled to IconSize
    QPixmap m_logo;
    int m_hw = -1;
};
