#pragma once

#include "database/DatabaseManager.h"

#include <QDialog>
#include <QVector>

class Prompter;
class QDialogButtonBox;
class QLabel;
class QListWidget;
class QPushButton;
class WidgetManager;

// Picks a named layout from the database and loads it; also deletes named layouts.
class DialogLoadLayout : public QDialog
{
    Q_OBJECT
public:
    // prompter: how the dialog asks and tells the user (null: real message boxes).
    DialogLoadLayout(WidgetManager *manager, Prompter *prompter, QWidget *parent = nullptr);

public slots:
    void accept() override;
    void deletePressed();

private:
    void fillList();
    void rowChanged(int row);

    WidgetManager *m_manager;
    Prompter *m_prompter;
    QVector<DatabaseManager::LayoutRow> m_rows;
    QListWidget *m_list;
    QLabel *m_description;
    QPushButton *m_delete;
    QDialogButtonBox *m_buttons;
};
