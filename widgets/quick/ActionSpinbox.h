#pragma once

#include <QWidgetAction>

class QDoubleSpinBox;

// A menu entry that holds a number: a label and a spin box, so a value is set without opening a dialog.
class ActionSpinbox : public QWidgetAction
{
    Q_OBJECT
public:
    ActionSpinbox(const QString &label, double minimum, double maximum, int decimals, double value,
                  QObject *parent);

    QDoubleSpinBox *spinBox() const { return m_spin; }

signals:
    // A value the user finished entering (Enter or leaving the box).
    void valueChosen(double value);

private:
    QDoubleSpinBox *m_spin;
};
