#include "tools/ui/ProgressDlg.h"

#include <QDialogButtonBox>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QVBoxLayout>

ProgressDlg::ProgressDlg(const QString &title, QWidget *parent) : QDialog(parent)
{
    setWindowTitle(title);
    auto *layout = new QVBoxLayout(this);
    m_label = new QLabel(this);
    m_bar = new QProgressBar(this);
    m_bar->setRange(0, 100);
    m_bar->setValue(0);
    auto *buttons = new QDialogButtonBox(this);
    buttons->addButton(tr("Cancel"), QDialogButtonBox::RejectRole);
    connect(buttons, &QDialogButtonBox::rejected, this, &ProgressDlg::reject);
    layout->addWidget(m_label);
    layout->addWidget(m_bar);
    layout->addWidget(buttons);
}

void ProgressDlg::setText(const QString &text)
{
    m_format.clear();
    m_label->setText(text);
}

void ProgressDlg::setTextFormat(const QString &format)
{
    m_format = format;
    m_label->setText(m_format.arg(m_bar->value()));
}

int ProgressDlg::value() const
{
    return m_bar->value();
}

void ProgressDlg::progress(int percent)
{
    // -1 (failure) is the caller's to report; the bar keeps where it was.
    if (percent < 0)
        return;
    m_bar->setValue(qMin(percent, 100));
    if (!m_format.isEmpty())
        m_label->setText(m_format.arg(m_bar->value()));
}

void ProgressDlg::reject()
{
    emit canceled();
    QDialog::reject();
}
