#include "widgets/quick/WidgetDialProperties.h"

#include <QCheckBox>
#include <QDialogButtonBox>
#include <QDoubleSpinBox>
#include <QFormLayout>

WidgetDialProperties::WidgetDialProperties(bool autoRange, double minimum, double maximum, QWidget *parent)
    : QDialog(parent)
{
    setWindowTitle(tr("Dial properties"));
    auto *form = new QFormLayout(this);
    m_auto = new QCheckBox(tr("Automatic range"), this);
    m_auto->setChecked(autoRange);
    form->addRow(m_auto);
    const auto box = [this](double value) {
        auto *spin = new QDoubleSpinBox(this);
        spin->setRange(-kLimit, kLimit);
        spin->setDecimals(kDecimals);
        spin->setValue(value);
        return spin;
    };
    m_maximum = box(maximum);
    m_minimum = box(minimum);
    form->addRow(tr("Manual range: Maximum"), m_maximum);
    form->addRow(tr("Manual range: Minimum"), m_minimum);
    // The manual range matters only without the automatic one.
    const auto follow = [this](bool automatic) {
        m_maximum->setEnabled(!automatic);
        m_minimum->setEnabled(!automatic);
    };
    connect(m_auto, &QCheckBox::toggled, this, follow);
    follow(autoRange);
    auto *buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, this);
    form->addRow(buttons);
    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
}

bool WidgetDialProperties::autoRange() const
{
    return m_auto->isChecked();
}

double WidgetDialProperties::minimum() const
{
    return m_minimum->value();
}

double WidgetDialProperties::maximum() const
{
    return m_maximum->value();
}
