#pragma once

#include <QWidget>

class DatabaseManager;
class Logbook;
class QLabel;
class QTableView;

// The logbook of the model selected in the models window: its totals above a sortable table of its
// flights. Read again on refresh(), which the models window calls whenever its tree changes.
class LogbookView : public QWidget
{
    Q_OBJECT
public:
    explicit LogbookView(DatabaseManager *database, QWidget *parent = nullptr);

    Logbook *logbook() const { return m_logbook; }
    QTableView *table() const { return m_table; }
    // The totals as shown, one "label: value" per line.
    QString summaryText() const;
    void setModelId(int modelId);

public slots:
    void refresh();

private:
    void showTotals(bool ok);

    Logbook *m_logbook;
    QLabel *m_summary;
    QTableView *m_table;
};
