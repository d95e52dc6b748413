#include "widgets/layout/Prompter.h"

#include <QFileDialog>
#include <QInputDialog>
#include <QPushButton>

void Prompter::information(QWidget *parent, const QString &title, const QString &text)
{
    showBox(parent, QMessageBox::Information, title, text, QMessageBox::Ok, QMessageBox::Ok);
}

void Prompter::warning(QWidget *parent, const QString &title, const QString &text)
{
    showBox(parent, QMessageBox::Warning, title, text, QMessageBox::Ok, QMessageBox::Ok);
}

void Prompter::error(QWidget *parent, const QString &title, const QString &text)
{
    showBox(parent, QMessageBox::Critical, title, text, QMessageBox::Ok, QMessageBox::Ok);
}

QMessageBox::StandardButton Prompter::question(QWidget *parent, const QString &title, const QString &text,
                                               QMessageBox::StandardButtons buttons,
                                               QMessageBox::StandardButton defaultButton)
{
    return showBox(parent, QMessageBox::Question, title, text, buttons, defaultButton);
}

int Prompter::choose(QWidget *parent, QMessageBox::Icon icon, const QString &title, const QString &text,
                     const QStringList &buttons, int defaultIndex)
{
    QMessageBox box(icon, title, text, QMessageBox::NoButton, parent);
    box.setTextFormat(Qt::RichText);
    QList<QAbstractButton *> made;
    for (int i = 0; i < buttons.size(); ++i)
        made << box.addButton(buttons.at(i),
                              i + 1 == buttons.size() ? QMessageBox::RejectRole : QMessageBox::AcceptRole);
    if (defaultIndex >= 0 && defaultIndex < made.size())
        box.setDefaultButton(qobject_cast<QPushButton *>(made.at(defaultIndex)));
    if (!made.isEmpty())
        box.setEscapeButton(made.constLast());
    box.exec();
    return made.indexOf(box.clickedButton());
}

bool Prompter::confirm(QWidget *parent, const QString &title, const QString &text)
{
    return question(parent, title, text, QMessageBox::Yes | QMessageBox::No, QMessageBox::No) ==
           QMessageBox::Yes;
}

QString Prompter::text(QWidget *parent, const QString &title, const QString &label, const QString &value,
                       bool *ok)
{
    return QInputDialog::getText(parent, title, label, QLineEdit::Normal, value, ok);
}

QString Prompter::openFile(QWidget *parent, const QString &title, const QString &folder,
                           const QString &filter)
{
    return QFileDialog::getOpenFileName(parent, title, folder, filter);
}

QStringList Prompter::openFiles(QWidget *parent, const QString &title, const QString &folder,
                                const QString &filter)
{
    return QFileDialog::getOpenFileNames(parent, title, folder, filter);
}

QString Prompter::saveFile(QWidget *parent, const QString &title, const QString &path, const QString &filter,
                           bool confirmOverwrite)
{
    return QFileDialog::getSaveFileName(parent, title, path, filter, nullptr,
                                        confirmOverwrite ? QFileDialog::Options()
                                                         : QFileDialog::DontConfirmOverwrite);
}

QMessageBox::StandardButton Prompter::showBox(QWidget *parent, QMessageBox::Icon icon, const QString &title,
                                              const QString &text, QMessageBox::StandardButtons buttons,
                                              QMessageBox::StandardButton defaultButton)
{
    QMessageBox box(icon, title, text, buttons, parent);
    box.setTextFormat(Qt::RichText);
    if (defaultButton != QMessageBox::NoButton)
        box.setDefaultButton(defaultButton);
    return QMessageBox::StandardButton(box.exec());
}

Prompter *Prompter::standard()
{
    static Prompter prompter; // stateless: sharing it is harmless
    return &prompter;
}
