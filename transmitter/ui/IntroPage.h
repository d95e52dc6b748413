#pragma once

#include <QWizardPage>

class QListWidget;

// The first page: the tools, one row each (icon, title, description); Next opens the chosen one.
class IntroPage : public QWizardPage
{
    Q_OBJECT
public:
    explicit IntroPage(QWidget *parent = nullptr);

    int nextId() const override;
    bool isComplete() const override;
    QListWidget *tools() const { return m_tools; }

private:
    QListWidget *m_tools;
};
