#include "transmitter/ui/NotAvailablePage.h"

#include "transmitter/ui/TransmitterWizard.h"

#include <QLabel>
#include <QVBoxLayout>

NotAvailablePage::NotAvailablePage(QWidget *parent) : QWizardPage(parent)
{
    m_text = new QLabel;
    m_text->setWordWrap(true);
    auto *layout = new QVBoxLayout(this);
    layout->addWidget(m_text);
    layout->addStretch();
}

void NotAvailablePage::initializePage()
{
    const auto *w = qobject_cast<TransmitterWizard *>(wizard());
    const QString tool = w ? w->unavailableTool() : QString();
    setTitle(tool);
    m_text->setText(tr("%1 is not available in this version of Vexo Studio yet.").arg(tool));
}

QString NotAvailablePage::text() const
{
    return m_text->text();
}
