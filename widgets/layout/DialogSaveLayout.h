#pragma once

#include <QDialog>

class QLineEdit;
class QListWidget;
class Prompter;
class QPlainTextEdit;
class WidgetManager;

// Stores the current layout under a name (with a description) in the database's layouts table.
class DialogSaveLayout : public QDialog
{
    Q_OBJECT
public:
    // prompter: how the dialog tells the user (null: real message boxes).
    DialogSaveLayout(WidgetManager *manager, Prompter *prompter, QWidget *parent = nullptr);

    // The new row's id after a successful save, else -1.
    int savedId() const { return m_savedId; }

public slots:
    void accept() override;

private:
    void fillList();
    QByteArray screenshot() const;

    WidgetManager *m_manager;
    Prompter *m_prompter;
    QListWidget *m_list;
    QLineEdit *m_name;
    QPlainTextEdit *m_description;
    int m_savedId = -1;
};
