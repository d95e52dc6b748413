#pragma once

#include "widgets/layout/SerializableWidget.h"

#include <QString>
#include <QUrl>
#include <QWidget>

#include <functional>

class NewsFeed;
class QImage;
class QTextBrowser;
class QTextDocument;
class QTimer;
class TelemetryData;
class WindowHub;

// "Vexo RSS reader": the maker's news as a page of rows with their pictures. The feed comes from the
// address the window is given (empty: the page says how to configure one); the loader does the fetching
// and the checks, this window only shows. A clicked link opens outside the program when it is a web
// address; nothing opens inside the view.
class WidgetRSS : public QWidget, public SerializableWidget
{
    Q_OBJECT
    // True until the feed and its pictures have arrived or failed (a screenshot run waits for it).
    Q_PROPERTY(bool loading READ isLoading)
public:
    // Hands a link to the desktop; replaceable so a test sees what would open.
    using Opener = std::function<bool(const QUrl &)>;
    // The window takes nothing from the hub or the store.
    static void wire(WidgetRSS *window, WindowHub *hub, TelemetryData *store);
    static constexpr int kFetchDelayMs = 500;
    // Pictures arriving within this are shown with one re-layout of the page.
    static constexpr int kRefreshDelayMs = 100;

    explicit WidgetRSS(const QString &feedUrl, QWidget *parent = nullptr);

    // The window has no settings of its own; the layout keeps only its type.
    int load(const LayoutJsonValue &object) override;
    int save(LayoutJsonWriter &writer, quint8 flag) override;

    bool isLoading() const;
    void setOpener(Opener opener) { m_opener = std::move(opener); }
    QTextBrowser *view() const { return m_view; }
    QTextDocument *document() const;

public slots:
    void fetch();
    // A link of the page was clicked.
    void itemActivated(const QUrl &url);

private:
    void showPage(const QString &html);
    void addImage(const QUrl &url, const QImage &image);
    void refresh();

    QString m_feedUrl;
    QTextBrowser *m_view;
    NewsFeed *m_feed;
    QTimer *m_fetchTimer;
    QTimer *m_refreshTimer;
    Opener m_opener;
};
