#pragma once

#include <QDialog>

class QLabel;
class QProgressBar;

// A small modal progress window for a background job: progress(int) moves the bar, "Cancel" emits
// canceled() so the job can stop (the job's cancel() slot is connected to it).
class ProgressDlg : public QDialog
{
    Q_OBJECT
public:
    explicit ProgressDlg(const QString &title, QWidget *parent = nullptr);

    void setText(const QString &text);
    // A format with %1 for the percentage, e.g. "Downloading device updates: %1%".
    void setTextFormat(const QString &format);
    int value() const;

public slots:
    void progress(int percent);

signals:
    void canceled();

protected:
    void reject() override;

private:
    QLabel *m_label;
    QProgressBar *m_bar;
    QString m_format;
};
