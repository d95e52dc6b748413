#include "widgets/models/LogbookView.h"

#include "database/Logbook.h"

#include <QHeaderView>
#include <QLabel>
#include <QTableView>
#include <QVBoxLayout>

LogbookView::LogbookView(DatabaseManager *database, QWidget *parent)
    : QWidget(parent), m_logbook(new Logbook(database, this))
{
    m_summary = new QLabel(this);
    m_summary->setTextInteractionFlags(Qt::TextSelectableByMouse);
    m_table = new QTableView(this);
    m_table->setModel(m_logbook);
    m_table->setSortingEnabled(true);
    m_table->sortByColumn(Logbook::DateColumn, Qt::AscendingOrder);
    m_table->setSelectionBehavior(QAbstractItemView::SelectRows);
    m_table->setEditTriggers(QAbstractItemView::NoEditTriggers);
    m_table->verticalHeader()->hide();
    m_table->horizontalHeader()->setStretchLastSection(true);
    // A thousand flights: measuring every row's contents would cost more than reading them.
    m_table->horizontalHeader()->setSectionResizeMode(QHeaderView::Interactive);
    m_table->verticalHeader()->setSectionResizeMode(QHeaderView::Fixed);
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(m_summary);
    layout->addWidget(m_table);
    showTotals(true);
}

void LogbookView::setModelId(int modelId)
{
    showTotals(m_logbook->setModelId(modelId));
}

void LogbookView::refresh()
{
    showTotals(m_logbook->reload());
}

QString LogbookView::summaryText() const
{
    return m_summary->text();
}

void LogbookView::showTotals(bool ok)
{
    if (!ok) {
        m_summary->setText(tr("The logbook cannot be read: %1").arg(m_logbook->lastError()));
        return;
    }
    if (m_logbook->modelId() < 0) {
        m_summary->setText(tr("No model selected."));
        return;
    }
    const Logbook::Totals &t = m_logbook->totals();
    m_summary->setText(tr("Flights: %1\nTotal flight time: %2\nLongest flight: %3\nFirst flight: %4\n"
                          "Last flight: %5\nAlarms: %6")
                           .arg(t.flights)
                           .arg(Logbook::durationText(t.totalms), Logbook::durationText(t.longestms),
                                Logbook::dateText(t.first), Logbook::dateText(t.last))
                           .arg(t.alarms));
}
