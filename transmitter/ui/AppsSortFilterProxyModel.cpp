#include "transmitter/ui/AppsSortFilterProxyModel.h"

#include "transmitter/ui/AppsListModel.h"

AppsSortFilterProxyModel::AppsSortFilterProxyModel(QObject *parent) : QSortFilterProxyModel(parent)
{
    setDynamicSortFilter(true);
    sort(0);
}

void AppsSortFilterProxyModel::setSearchText(const QString &text)
{
    m_search = text.trimmed();
    invalidateFilter();
}

void AppsSortFilterProxyModel::setOnlyInstalled(bool only)
{
    m_installed = only;
    invalidateFilter();
}

void AppsSortFilterProxyModel::setOnlyCompatible(bool only)
{
    m_compatible = only;
    invalidateFilter();
}

void AppsSortFilterProxyModel::setOnlyUpdatable(bool only)
{
    m_updatable = only;
    invalidateFilter();
}

bool AppsSortFilterProxyModel::filterAcceptsRow(int sourceRow, const QModelIndex &sourceParent) const
{
    const QModelIndex i = sourceModel()->index(sourceRow, 0, sourceParent);
    if (m_installed && !i.data(AppsListModel::InstalledRole).toBool())
        return false;
    if (m_compatible && !i.data(AppsListModel::CompatibleRole).toBool())
        return false;
    if (m_updatable && !i.data(AppsListModel::UpdatableRole).toBool())
        return false;
    if (m_search.isEmpty())
        return true;
    return i.data(AppsListModel::NameRole).toString().contains(m_search, Qt::CaseInsensitive) ||
           i.data(AppsListModel::AuthorRole).toString().contains(m_search, Qt::CaseInsensitive);
}

bool AppsSortFilterProxyModel::lessThan(const QModelIndex &left, const QModelIndex &right) const
{
    const int byName = QString::localeAwareCompare(left.data(AppsListModel::NameRole).toString().toLower(),
                                                   right.data(AppsListModel::NameRole).toString().toLower());
    if (byName != 0)
        return byName < 0;
    return left.row() < right.row();
}
