#include "widgets/graph/WidgetGraphExport.h"
#include "telemetry/AtomicFile.h"

#include <QDialogButtonBox>
#include <QDir>
#include <QFileInfo>
#include <QFormLayout>
#include <QGroupBox>
#include <QImageWriter>
#include <QLabel>
#include <QPixmap>
#include <QPushButton>
#include <QSaveFile>
#include <QSpinBox>
#include <QVBoxLayout>

namespace {
constexpr int kPreviewWidth = 360;
constexpr int kPreviewHeight = 240;

QSpinBox *sizeBox(QWidget *parent, int value)
{
    auto *box = new QSpinBox(parent);
    box->setRange(WidgetGraphExport::kMinSize, WidgetGraphExport::kMaxSize);
    box->setSuffix(WidgetGraphExport::tr(" px"));
    box->setValue(value);
    return box;
}

int initialSize(int stored, int fallback)
{
    const int value = stored > 0 ? stored : fallback;
    return qBound(WidgetGraphExport::kMinSize, value, WidgetGraphExport::kMaxSize);
}
} // namespace

WidgetGraphExport::WidgetGraphExport(const Settings &settings, const QSize &fallbackSize, Renderer renderer,
                                     QWidget *parent)
    : QDialog(parent), m_renderer(std::move(renderer))
{
    setWindowTitle(tr("Export image"));
    const QFileInfo stored(settings.path);
    if (!settings.path.isEmpty() && stored.isDir()) {
        m_startFolder = settings.path;
    } else if (!settings.path.isEmpty()) {
        m_path = settings.path;
        m_startFolder = stored.absolutePath();
    }

    auto *group = new QGroupBox(tr("Export settings"), this);
    auto *form = new QFormLayout(group);
    m_width = sizeBox(group, initialSize(settings.width, fallbackSize.width()));
    m_height = sizeBox(group, initialSize(settings.height, fallbackSize.height()));
    form->addRow(tr("Image width"), m_width);
    form->addRow(tr("Image height"), m_height);
    m_fileButton = new QPushButton(tr("Set file..."), group);
    m_fileLabel = new QLabel(group);
    m_fileLabel->setTextInteractionFlags(Qt::TextSelectableByMouse);
    m_fileLabel->setWordWrap(true);
    form->addRow(m_fileButton, m_fileLabel);
    form->addRow(new QLabel(tr("<b>Exported image</b>"), group));
    m_preview = new QLabel(group);
    m_preview->setMinimumSize(kPreviewWidth, kPreviewHeight);
    m_preview->setAlignment(Qt::AlignCenter);
    form->addRow(m_preview);

    auto *buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, this);
    auto *layout = new QVBoxLayout(this);
    layout->addWidget(group);
    layout->addWidget(buttons);
    setPath(m_path);

    // Typing a size redraws the preview once the typing pauses.
    m_previewTimer.setSingleShot(true);
    m_previewTimer.setInterval(150);
    connect(&m_previewTimer, &QTimer::timeout, this, &WidgetGraphExport::updatePreview);
    connect(m_width, QOverload<int>::of(&QSpinBox::valueChanged), this, &WidgetGraphExport::schedulePreview);
    connect(m_height, QOverload<int>::of(&QSpinBox::valueChanged), this, &WidgetGraphExport::schedulePreview);
    connect(m_fileButton, &QPushButton::clicked, this, &WidgetGraphExport::chooseFile);
    connect(buttons, &QDialogButtonBox::accepted, this, &WidgetGraphExport::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    updatePreview();
}

WidgetGraphExport::Settings WidgetGraphExport::settings() const
{
    return {m_path, m_width->value(), m_height->value()};
}

void WidgetGraphExport::setPath(const QString &path)
{
    m_path = path;
    m_fileLabel->setText(path.isEmpty() ? tr("No file chosen") : QDir::toNativeSeparators(path));
}

void WidgetGraphExport::schedulePreview()
{
    m_previewTimer.start();
}

void WidgetGraphExport::updatePreview()
{
    if (!m_renderer)
        return;
    const QImage image = m_renderer(QSize(m_width->value(), m_height->value()));
    m_preview->setPixmap(QPixmap::fromImage(
        image.scaled(kPreviewWidth, kPreviewHeight, Qt::KeepAspectRatio, Qt::SmoothTransformation)));
}

void WidgetGraphExport::chooseFile()
{
    const QString start = m_path.isEmpty() ? m_startFolder : m_path;
    // Replacing a file is asked once, when exporting.
    QString path = prompter()->saveFile(this, tr("Export PNG image"), start, tr("PNG images (*.png)"), false);
    if (path.isEmpty())
        return;
    if (QFileInfo(path).suffix().isEmpty())
        path += QStringLiteral(".png");
    setPath(path);
}

void WidgetGraphExport::accept()
{
    if (m_path.isEmpty())
        chooseFile();
    if (m_path.isEmpty())
        return;
    if (exportImage())
        QDialog::accept();
}

bool WidgetGraphExport::exportImage()
{
    if (m_path.isEmpty() || !m_renderer)
        return false;
    const QFileInfo target(m_path);
    if (target.isDir()) {
        prompter()->error(
            this, tr("Error"),
            tr("<b>Unable to export image:</b><ul><li>%1</li></ul>")
                .arg(tr("%1 is a folder.").arg(QDir::toNativeSeparators(m_path)).toHtmlEscaped()));
        return false;
    }
    // Enter keeps the file: No is the default.
    if (target.exists() && !prompter()->confirm(this, tr("File exists"), tr("File exists. Overwrite?")))
        return false;
    const QImage image = m_renderer(QSize(m_width->value(), m_height->value()));
    QString error;
    if (!writePng(image, m_path, &error)) {
        prompter()->error(
            this, tr("Error"),
            tr("<b>Unable to export image:</b><ul><li>%1</li></ul>").arg(error.toHtmlEscaped()));
        return false;
    }
    return true;
}

bool WidgetGraphExport::writePng(const QImage &image, const QString &path, QString *error)
{
    const QString name = QDir::toNativeSeparators(path);
    if (image.isNull()) {
        *error = tr("%1: nothing to export").arg(name);
        return false;
    }
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly)) {
        *error = tr("%1: %2").arg(name, file.errorString());
        return false;
    }
    QImageWriter writer(&file, "png");
    if (!writer.write(image)) {
        *error = tr("%1: %2").arg(name, writer.errorString());
        file.cancelWriting();
        return false;
    }
    if (!AtomicFile::commit(file)) {
        *error = tr("%1: %2").arg(name, file.errorString());
        return false;
    }
    return true;
}
