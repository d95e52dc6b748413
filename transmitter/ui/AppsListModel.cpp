#include "transmitter/ui/AppsListModel.h"

#include "transmitter/TransmitterModels.h"

#include <QPainter>
#include <QPainterPath>

AppsListModel::AppsListModel(QObject *parent) : QAbstractListModel(parent) {}

int AppsListModel::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : m_apps.size();
}

bool AppsListModel::isUpdatable(const TxCatalogue::App &app) const
{
    const auto it = m_installed.constFind(app.id);
    return it != m_installed.constEnd() && (it->version != app.version || !it->complete);
}

QVariant AppsListModel::data(const QModelIndex &index, int role) const
{
    if (!index.isValid() || index.row() >= m_apps.size())
        return {};
    const TxCatalogue::App &app = m_apps.at(index.row());
    const QString preview = app.previewIcon.toString();
    switch (role) {
    case Qt::DisplayRole:
    case NameRole:
        return app.name;
    case Qt::DecorationRole:
        if (!preview.isEmpty() && m_previews.contains(preview))
            return m_previews.value(preview);
        if (m_logo.isNull())
            const_cast<AppsListModel *>(this)->m_logo = QPixmap::fromImage(luaLogo(IconSize));
        return m_logo;
    case LuaLogoRole:
        return preview.isEmpty() || !m_previews.contains(preview);
    case Qt::ToolTipRole:
    case DescriptionRole:
        return app.description;
    case AppIdRole:
        return app.id;
    case AuthorRole:
        return app.author;
    case VersionRole:
        return app.version;
    case InstalledVersionRole:
        return m_installed.contains(app.id) ? m_installed.value(app.id).version : QString();
    case ReleaseDateRole:
        return app.releaseDate;
    case SupportedModelsRole: {
        QStringList names;
        for (int hw : app.hw)
            names << TransmitterModels::modelName(quint16(hw));
        return names;
    }
    case InstalledRole:
        return m_installed.contains(app.id);
    case CompatibleRole:
        return app.supports(m_hw);
    case UpdatableRole:
        return isUpdatable(app);
    case PreviewUrlRole:
        return app.previewIcon;
    default:
        return {};
    }
}

void AppsListModel::setApps(const QVector<TxCatalogue::App> &apps)
{
    beginResetModel();
    m_apps = apps;
    endResetModel();
}

void AppsListModel::setInstalled(const QHash<int, AppManifest> &installed)
{
    m_installed = installed;
    if (!m_apps.isEmpty())
        emit dataChanged(index(0), index(m_apps.size() - 1));
}

void AppsListModel::setConnectedHardware(int hwId)
{
    m_hw = hwId;
    if (!m_apps.isEmpty())
        emit dataChanged(index(0), index(m_apps.size() - 1), {CompatibleRole});
}

void AppsListModel::setPreview(const QUrl &url, const QImage &image)
{
    if (image.isNull())
        return;
    const QString key = url.toString();
    m_previews.insert(key, QPixmap::fromImage(image.scaled(IconSize, IconSize, Qt::KeepAspectRatio,
                                                           Qt::SmoothTransformation)));
    for (int row = 0; row < m_apps.size(); ++row) {
        if (m_apps.at(row).previewIcon.toString() == key)
            emit dataChanged(index(row), index(row), {Qt::DecorationRole, LuaLogoRole});
    }
}

int AppsListModel::rowOf(int appId) const
{
    for (int row = 0; row < m_apps.size(); ++row) {
        if (m_apps.at(row).id == appId)
            return row;
    }
    return -1;
}

QImage AppsListModel::luaLogo(int size)
{
    QImage image(size, size, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    QPainter p(&image);
    p.setRenderHint(QPainter::Antialiasing);
    const QColor navy(0, 0, 128);
    const qreal s = size;
    // The planet, with the moon's shadow cut out of it, and the moon beside it.
    const QRectF planet(s * 0.02, s * 0.12, s * 0.84, s * 0.84);
    const qreal moonD = s * 0.22;
    const QRectF hole(planet.right() - moonD * 1.55, planet.top() + moonD * 0.55, moonD, moonD);
    QPainterPath body;
    body.addEllipse(planet);
    QPainterPath cut;
    cut.addEllipse(hole);
    p.fillPath(body.subtracted(cut), navy);
    p.setBrush(navy);
    p.setPen(Qt::NoPen);
    p.drawEllipse(QRectF(s - moonD - s * 0.01, s * 0.01, moonD, moonD));
    QFont font;
    font.setBold(true);
    font.setPixelSize(qMax(6, int(s * 0.28)));
    p.setFont(font);
    p.setPen(Qt::white);
    p.drawText(planet.adjusted(0, s * 0.12, 0, 0), Qt::AlignCenter, QStringLiteral("Lua"));
    return image;
}
