#pragma once

#include <QWizardPage>

class QLabel;

// Where the tools of later versions lead for now.
class NotAvailablePage : public QWizardPage
{
    Q_OBJECT
public:
    explicit NotAvailablePage(QWidget *parent = nullptr);

    void initializePage() override;
    int nextId() const override { return -1; }
    QString text() const;

private:
    QLabel *m_text;
};
