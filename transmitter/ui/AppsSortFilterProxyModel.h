#pragma once

#include <QSortFilterProxyModel>

// What the app manager's search field and check boxes keep of AppsListModel, sorted by name. The search
// matches the name or the author, ignoring case; the filters add up.
class AppsSortFilterProxyModel : public QSortFilterProxyModel
{
    Q_OBJECT
public:
    explicit AppsSortFilterProxyModel(QObject *parent = nullptr);

    void setSearchText(const QString &text);
    void setOnlyInstalled(bool only);
    void setOnlyCompatible(bool only);
    void setOnlyUpdatable(bool only);

protected:
    bool filterAcceptsRow(int sourceRow, const QModelIndex &sourceParent) const override;
    bool lessThan(const QModelIndex &left, const QModelIndex &right) const override;

private:
    QString m_search;
    bool m_installed = false;
    bool m_compatible = false;
    bool m_updatable = false;
};
