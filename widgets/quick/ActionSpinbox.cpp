#include "widgets/quick/ActionSpinbox.h"

#include <QDoubleSpinBox>
#include <QHBoxLayout>
#include <QLabel>

ActionSpinbox::ActionSpinbox(const QString &label, double minimum, double maximum, int decimals, double value,
                             QObject *parent)
    : QWidgetAction(parent)
{
    auto *holder = new QWidget;
    auto *row = new QHBoxLayout(holder);
    row->setContentsMargins(24, 2, 8, 2);
    row->addWidget(new QLabel(label, holder));
    m_spin = new QDoubleSpinBox(holder);
    m_spin->setRange(minimum, maximum);
    m_spin->setDecimals(decimals);
    m_spin->setValue(value);
    m_spin->setKeyboardTracking(false);
    row->addWidget(m_spin, 1);
    setDefaultWidget(holder);
    connect(m_spin, &QDoubleSpinBox::editingFinished, this, [this] { emit valueChosen(m_spin->value()); });
}
