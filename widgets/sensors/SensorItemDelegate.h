#pragma once

#include <QStyledItemDelegate>

// Draws an item's text with a tab stop of its own, so what follows the tab (a variable's unit) lines
// up in one column; the style's own drawing puts a tab stop every 80 pixels.
class SensorItemDelegate : public QStyledItemDelegate
{
    Q_OBJECT
public:
    using QStyledItemDelegate::QStyledItemDelegate;

    // Pixels from the start of the text; 0 leaves the drawing to the style.
    void setTabStop(qreal pixels) { m_tabStop = pixels; }
    qreal tabStop() const { return m_tabStop; }

    void paint(QPainter *painter, const QStyleOptionViewItem &option,
               const QModelIndex &index) const override;

private:
    qreal m_tabStop = 0;
};
