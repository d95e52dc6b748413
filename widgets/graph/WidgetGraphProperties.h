#pragma once

#include "widgets/graph/GraphItem.h"
#include "widgets/layout/Prompter.h"

#include <QColor>
#include <QDialog>

class QCheckBox;
class QComboBox;
class QDoubleSpinBox;
class QLabel;
class QPushButton;
class QSpinBox;
class SensorTable;

// "Chart properties": the look and the Y axis of one graph item. Every control changes the item at once
// and says so, so the graph previews the change; the graph restores its copy when the dialog is
// cancelled.
class WidgetGraphProperties : public QDialog
{
    Q_OBJECT
public:
    // name: the variable's label; baseUnit and unitCategory: the unit it arrives in; sensors may be null
    // (then "Set as default sensor properties" is disabled).
    WidgetGraphProperties(const GraphItem &item, const QString &name, const QString &baseUnit,
                          quint8 unitCategory, SensorTable *sensors, QWidget *parent = nullptr);

    const GraphItem &item() const { return m_item; }
    // The range the axis shows now: the manual range starts from it when it was never set.
    void setDisplayedRange(double low, double high);
    // How the dialog tells the user; the window that opens it hands over its own.
    void setPrompter(Prompter *prompter) { m_prompter = prompter; }
    Prompter *prompter() const { return m_prompter ? m_prompter : Prompter::standard(); }

    QPushButton *colorButton() const { return m_colorButton; }
    QDoubleSpinBox *lineWidthBox() const { return m_lineWidth; }
    QCheckBox *fillBox() const { return m_fill; }
    QSpinBox *transparencyBox() const { return m_transparency; }
    QCheckBox *gridBox() const { return m_grid; }
    QCheckBox *lockBox() const { return m_lock; }
    QCheckBox *autoRangeBox() const { return m_autoRange; }
    QDoubleSpinBox *maximumBox() const { return m_maximum; }
    QDoubleSpinBox *minimumBox() const { return m_minimum; }
    QComboBox *unitBox() const { return m_unit; }
    QPushButton *defaultsButton() const { return m_defaults; }

    static int alphaToPercent(int alpha);
    static int percentToAlpha(int percent);

public slots:
    // Colour dialog: a colour being tried, the dialog cancelled, a colour chosen.
    void setColor(const QColor &color);
    void rejectColor();
    void acceptColor(const QColor &color);
    // Stores colour, range and unit as the variable's defaults in the sensor settings.
    bool saveAsDefault();

signals:
    void fillChartChanged(bool fill);
    void lineWidthChanged(double width);
    void transparencyChanged(int alpha);
    void showGridChanged(bool show);
    void fixedRangeChanged(bool locked);
    void autoRangeChanged(bool automatic);
    void minChanged(double minimum);
    void maxChanged(double maximum);
    void colorChanged(const QColor &color);
    void unitChanged(const QString &unit);
    // After each of the above: the item as it now stands.
    void itemChanged(const GraphItem &item);

private:
    void chooseColor();
    void changed();
    void updateEnabled();
    void showColor();

    GraphItem m_item;
    QString m_name;
    QString m_baseUnit;
    quint8 m_unitCategory;
    SensorTable *m_sensors;
    QColor m_acceptedColor;
    Prompter *m_prompter = nullptr;

    QLabel *m_colorSwatch = nullptr;
    QPushButton *m_colorButton = nullptr;
    QDoubleSpinBox *m_lineWidth = nullptr;
    QCheckBox *m_fill = nullptr;
    QSpinBox *m_transparency = nullptr;
    QCheckBox *m_grid = nullptr;
    QCheckBox *m_lock = nullptr;
    QCheckBox *m_autoRange = nullptr;
    QDoubleSpinBox *m_maximum = nullptr;
    QDoubleSpinBox *m_minimum = nullptr;
    QComboBox *m_unit = nullptr;
    QPushButton *m_defaults = nullptr;
};
