#pragma once

#include "widgets/layout/Prompter.h"

#include <QDialog>
#include <QImage>
#include <QSize>
#include <QString>
#include <QTimer>

#include <functional>

class QLabel;
class QPushButton;
class QSpinBox;

// "Export image": the graph rendered at a chosen size and saved as PNG, with a preview.
class WidgetGraphExport : public QDialog
{
    Q_OBJECT
public:
    static constexpr int kMinSize = 200;
    static constexpr int kMaxSize = 2000;

    // The "Bmp-Export-*" settings; the window's owner reads and writes them.
    struct Settings
    {
        QString path; // the last exported file, or a folder to start in
        int width = 0;
        int height = 0;
    };
    using Renderer = std::function<QImage(const QSize &size)>;

    // fallbackSize is used for a size the settings do not give.
    WidgetGraphExport(const Settings &settings, const QSize &fallbackSize, Renderer renderer,
                      QWidget *parent = nullptr);

    // What was used for the last export (path, width, height).
    Settings settings() const;
    QString path() const { return m_path; }
    void setPath(const QString &path);
    QSpinBox *widthBox() const { return m_width; }
    QSpinBox *heightBox() const { return m_height; }
    QLabel *preview() const { return m_preview; }
    // How the dialog asks and tells the user; the window that opens it hands over its own.
    void setPrompter(Prompter *prompter) { m_prompter = prompter; }
    Prompter *prompter() const { return m_prompter ? m_prompter : Prompter::standard(); }

    // Renders at the chosen size and writes the file (asking before replacing one); true when written.
    bool exportImage();
    // Writes image to path as PNG through a temporary file; error gets the reason.
    static bool writePng(const QImage &image, const QString &path, QString *error);

public slots:
    void accept() override;
    void chooseFile();

private:
    void schedulePreview();
    void updatePreview();

    Renderer m_renderer;
    QString m_path;
    QString m_startFolder;
    Prompter *m_prompter = nullptr;
    QSpinBox *m_width = nullptr;
    QSpinBox *m_height = nullptr;
    QPushButton *m_fileButton = nullptr;
    QLabel *m_fileLabel = nullptr;
    QLabel *m_preview = nullptr;
    QTimer m_previewTimer;
};
