#pragma once

#include <QWizardPage>

class BackupsModel;
class QPlainTextEdit;
class QTreeView;

// The backups viewer: the database's backups, the description of the chosen one, and deletion from the
// context menu.
class ManageBackupsPage : public QWizardPage
{
    Q_OBJECT
public:
    explicit ManageBackupsPage(QWidget *parent = nullptr);

    void initializePage() override;
    int nextId() const override { return -1; }

    QTreeView *backups() const { return m_tree; }
    QPlainTextEdit *descriptionBox() const { return m_description; }
    // Deletes the backup of the current row; false (after the error box) when the database refused.
    bool deleteCurrentBackup();

private:
    void showMenu(const QPoint &pos);
    void showDescription();

    QTreeView *m_tree;
    QPlainTextEdit *m_description;
    BackupsModel *m_model = nullptr;
};
