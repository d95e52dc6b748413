#pragma once

#include <QHeaderView>

// A horizontal header whose first section carries a check box: clicking it asks for everything below
// to be checked or unchecked; the box itself shows what the owner reports (all, none, some).
class CheckBoxHeader : public QHeaderView
{
    Q_OBJECT
public:
    explicit CheckBoxHeader(QWidget *parent = nullptr);

    Qt::CheckState checkState() const { return m_state; }
    // Shows a state without announcing it.
    void setCheckState(Qt::CheckState state);
    // Where the box is drawn, in viewport coordinates.
    QRect checkBoxRect() const;

signals:
    // The user clicked the box: check everything (true) or nothing.
    void toggled(bool checked);

protected:
    void paintSection(QPainter *painter, const QRect &rect, int logicalIndex) const override;
    void mousePressEvent(QMouseEvent *event) override;

private:
    QRect boxIn(const QRect &section) const;

    Qt::CheckState m_state = Qt::Unchecked;
};
