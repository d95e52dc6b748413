#pragma once

#include <QTreeView>

// A tree view that turns the Delete key into a request, so the owner can ask before deleting.
class DeletableTreeView : public QTreeView
{
    Q_OBJECT
public:
    using QTreeView::QTreeView;

signals:
    void deleteRequested(const QModelIndex &index);

protected:
    void keyPressEvent(QKeyEvent *event) override;
    void startDrag(Qt::DropActions supportedActions) override;
};
