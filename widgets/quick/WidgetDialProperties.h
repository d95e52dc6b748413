#pragma once

#include <QDialog>

class QCheckBox;
class QDoubleSpinBox;

// "Dial properties": automatic range, or the manual minimum and maximum.
class WidgetDialProperties : public QDialog
{
    Q_OBJECT
public:
    // The layout keeps hundredths.
    static constexpr int kDecimals = 2;
    static constexpr double kLimit = 1e7;

    WidgetDialProperties(bool autoRange, double minimum, double maximum, QWidget *parent = nullptr);

    bool autoRange() const;
    double minimum() const;
    double maximum() const;

private:
    QCheckBox *m_auto;
    QDoubleSpinBox *m_maximum;
    QDoubleSpinBox *m_minimum;
};
