#include "transmitter/ui/CheckBoxHeader.h"

#include <QMouseEvent>
#include <QPainter>
#include <QStyleOptionButton>
#include <QStyleOptionHeader>

namespace {
constexpr int kMargin = 4;
} // namespace

CheckBoxHeader::CheckBoxHeader(QWidget *parent) : QHeaderView(Qt::Horizontal, parent)
{
    setSectionsClickable(true);
    setHighlightSections(false);
}

void CheckBoxHeader::setCheckState(Qt::CheckState state)
{
    if (m_state == state)
        return;
    m_state = state;
    viewport()->update();
}

QRect CheckBoxHeader::boxIn(const QRect &section) const
{
    QStyleOptionButton option;
    const QRect indicator = style()->subElementRect(QStyle::SE_CheckBoxIndicator, &option, this);
    return QRect(section.left() + kMargin, section.top() + (section.height() - indicator.height()) / 2,
                 indicator.width(), indicator.height());
}

QRect CheckBoxHeader::checkBoxRect() const
{
    const int logical = logicalIndex(0);
    if (logical < 0)
        return {};
    return boxIn(QRect(sectionViewportPosition(logical), 0, sectionSize(logical), height()));
}

void CheckBoxHeader::paintSection(QPainter *painter, const QRect &rect, int logicalIndex) const
{
    if (visualIndex(logicalIndex) != 0) {
        QHeaderView::paintSection(painter, rect, logicalIndex);
        return;
    }
    // The section as usual, its label moved right of the box.
    QStyleOptionHeader header;
    initStyleOption(&header);
    header.rect = rect;
    header.section = logicalIndex;
    header.position = QStyleOptionHeader::Beginning;
    header.textAlignment = defaultAlignment();
    if (model())
        header.text = model()->headerData(logicalIndex, orientation()).toString();
    painter->save();
    style()->drawControl(QStyle::CE_HeaderSection, &header, painter, this);
    const QRect box = boxIn(rect);
    QStyleOptionHeader label = header;
    label.rect = rect.adjusted(box.right() - rect.left() + kMargin, 0, 0, 0);
    style()->drawControl(QStyle::CE_HeaderLabel, &label, painter, this);
    QStyleOptionButton check;
    check.rect = box;
    check.state = QStyle::State_Enabled;
    check.state |= m_state == Qt::Checked            ? QStyle::State_On
                   : m_state == Qt::PartiallyChecked ? QStyle::State_NoChange
                                                     : QStyle::State_Off;
    style()->drawPrimitive(QStyle::PE_IndicatorCheckBox, &check, painter, this);
    painter->restore();
}

void CheckBoxHeader::mousePressEvent(QMouseEvent *event)
{
    if (event->button() == Qt::LeftButton && checkBoxRect().contains(event->pos())) {
        // Some or none checked: a click checks all, as a tree's own check box does.
        const bool check = m_state != Qt::Checked;
        setCheckState(check ? Qt::Checked : Qt::Unchecked);
        emit toggled(check);
        return;
    }
    QHeaderView::mousePressEvent(event);
}
