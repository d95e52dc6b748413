#include "widgets/sensors/SensorItemDelegate.h"

#include <QApplication>
#include <QFontMetricsF>
#include <QPainter>

void SensorItemDelegate::paint(QPainter *painter, const QStyleOptionViewItem &option,
                               const QModelIndex &index) const
{
    QStyleOptionViewItem opt = option;
    initStyleOption(&opt, index);
    const int tab = opt.text.indexOf(QLatin1Char('\t'));
    if (m_tabStop <= 0 || tab < 0) {
        QStyledItemDelegate::paint(painter, option, index);
        return;
    }
    const QWidget *widget = opt.widget;
    const QStyle *style = widget ? widget->style() : QApplication::style();
    // The same margin the style keeps inside the text rectangle.
    const int margin = style->pixelMetric(QStyle::PM_FocusFrameHMargin, nullptr, widget) + 1;
    const QRectF textRect =
        style->subElementRect(QStyle::SE_ItemViewItemText, &opt, widget).adjusted(margin, 0, -margin, 0);
    const QString before = opt.text.left(tab);
    const QString after = opt.text.mid(tab + 1);
    const QFontMetricsF metrics(opt.font);
    // The two parts are placed by hand: text layouts scale tab stops by the font's resolution. A column
    // too narrow for both: the style's elided text says more than clipped parts.
    if (metrics.horizontalAdvance(before) > m_tabStop ||
        m_tabStop + metrics.horizontalAdvance(after) > textRect.width()) {
        QStyledItemDelegate::paint(painter, option, index);
        return;
    }

    // The style draws the background, selection and focus; the text is drawn here.
    opt.text.clear();
    style->drawControl(QStyle::CE_ItemViewItem, &opt, painter, widget);
    QPalette::ColorGroup group = (opt.state & QStyle::State_Enabled) ? QPalette::Normal : QPalette::Disabled;
    if (group == QPalette::Normal && !(opt.state & QStyle::State_Active))
        group = QPalette::Inactive;
    painter->save();
    painter->setFont(opt.font);
    painter->setPen(opt.palette.color(group, (opt.state & QStyle::State_Selected) ? QPalette::HighlightedText
                                                                                  : QPalette::Text));
    const int flags = Qt::AlignLeft | Qt::AlignVCenter | Qt::TextSingleLine;
    painter->drawText(textRect, flags, before);
    painter->drawText(textRect.adjusted(m_tabStop, 0, 0, 0), flags, after);
    painter->restore();
}
