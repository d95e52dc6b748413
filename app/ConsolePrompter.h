#pragma once

#include "widgets/layout/Prompter.h"

// For a run nobody watches (the screenshot run): every box is written to standard error as plain text
// and answered with its default, file dialogs are cancelled. A box would otherwise wait forever.
class ConsolePrompter : public Prompter
{
public:
    int choose(QWidget *parent, QMessageBox::Icon icon, const QString &title, const QString &text,
               const QStringList &buttons, int defaultIndex = 0) override;
    QString text(QWidget *parent, const QString &title, const QString &label, const QString &value,
                 bool *ok) override;
    QString openFile(QWidget *parent, const QString &title, const QString &folder,
                     const QString &filter) override;
    QStringList openFiles(QWidget *parent, const QString &title, const QString &folder,
                          const QString &filter) override;
    QString saveFile(QWidget *parent, const QString &title, const QString &path, const QString &filter,
                     bool confirmOverwrite = true) override;

protected:
    QMessageBox::StandardButton showBox(QWidget *parent, QMessageBox::Icon icon, const QString &title,
                                        const QString &text, QMessageBox::StandardButtons buttons,
                                        QMessageBox::StandardButton defaultButton) override;

private:
    static void say(const QString &title, const QString &text);
};
