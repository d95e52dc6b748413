#include "transmitter/ui/AppsListDelegate.h"

#include "transmitter/ui/AppsListModel.h"

#include <QApplication>
#include <QPainter>

namespace {
constexpr int kMargin = 6;
} // namespace

QStringList AppsListDelegate::detailLines(const QModelIndex &index)
{
    QString version = tr("Version: %1").arg(index.data(AppsListModel::VersionRole).toString());
    const QString installed = index.data(AppsListModel::InstalledVersionRole).toString();
    if (index.data(AppsListModel::InstalledRole).toBool())
        version += QStringLiteral("  (") +
                   tr("installed: %1").arg(installed.isEmpty() ? QStringLiteral("?") : installed) +
                   QLatin1Char(')');
    return {tr("Author: %1").arg(index.data(AppsListModel::AuthorRole).toString()), version,
            tr("Supported transmitters:") + QLatin1Char(' ') +
                index.data(AppsListModel::SupportedModelsRole).toStringList().join(QStringLiteral(", "))};
}

void AppsListDelegate::paint(QPainter *painter, const QStyleOptionViewItem &option,
                             const QModelIndex &index) const
{
    QStyleOptionViewItem opt = option;
    initStyleOption(&opt, index);
    // The background and selection of the style, without its own text and icon.
    opt.text.clear();
    opt.icon = QIcon();
    const QWidget *widget = option.widget;
    QStyle *style = widget ? widget->style() : QApplication::style();
    style->drawControl(QStyle::CE_ItemViewItem, &opt, painter, widget);

    painter->save();
    const QRect r = option.rect.adjusted(kMargin, kMargin, -kMargin, -kMargin);
    const QPixmap icon = index.data(Qt::DecorationRole).value<QPixmap>();
    const int iconSize = AppsListModel::IconSize;
    if (!icon.isNull())
        painter->drawPixmap(QRect(r.left(), r.top(), iconSize, iconSize), icon);
    const bool selected = option.state & QStyle::State_Selected;
    painter->setPen(option.palette.color(selected ? QPalette::HighlightedText : QPalette::Text));
    QRect text = r.adjusted(iconSize + kMargin * 2, 0, 0, 0);
    QFont bold = option.font;
    bold.setBold(true);
    painter->setFont(bold);
    const QFontMetrics boldMetrics(bold);
    painter->drawText(
        text, Qt::AlignLeft | Qt::AlignTop,
        boldMetrics.elidedText(index.data(AppsListModel::NameRole).toString(), Qt::ElideRight, text.width()));
    text.setTop(text.top() + boldMetrics.height());
    painter->setFont(option.font);
    const QFontMetrics metrics(option.font);
    for (const QString &line : detailLines(index)) {
        painter->drawText(text, Qt::AlignLeft | Qt::AlignTop,
                          metrics.elidedText(line, Qt::ElideRight, text.width()));
        text.setTop(text.top() + metrics.height());
    }
    painter->restore();
}

QSize AppsListDelegate::sizeHint(const QStyleOptionViewItem &option, const QModelIndex &index) const
{
    QFont bold = option.font;
    bold.setBold(true);
    const int lines = QFontMetrics(bold).height() + 3 * QFontMetrics(option.font).height();
    const int height = qMax(lines, int(AppsListModel::IconSize)) + 2 * kMargin;
    int width = 0;
    for (const QString &line : detailLines(index))
        width = qMax(width, QFontMetrics(option.font).horizontalAdvance(line));
    return {AppsListModel::IconSize + 3 * kMargin + qMin(width, 400), height};
}
