// The news window's page: reading a feed of 200 items into rows (the window shows the newest
// NewsFeed::kMaxItems), laying the page out in a view of a usual window's width, and laying it out again
// once the pictures are in.
// Usage: bench_news [items] [runs]
#include "BenchUtil.h"

#include "tools/NewsFeed.h"

#include <QApplication>
#include <QTextBrowser>

#include <algorithm>
#include <cstdio>

using namespace BenchUtil;

namespace {
// Something like a maker's feed: a picture, a paragraph or two with some markup, a link.
QByteArray feed(int items)
{
    QByteArray xml =
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<rss version=\"2.0\"><channel><title>News</title>"
        "<link>http://news.example.com/</link>\n";
    for (int i = 0; i < items; ++i) {
        const QByteArray n = QByteArray::number(i);
        xml +=
            "<item><title>Firmware " + n +
            " for the variometer and the altimeter</title>"
            "<link>http://news.example.com/article/" +
            n +
            "</link><pubDate>Mon, 06 May 2024 10:00:00 GMT"
            "</pubDate><description><![CDATA[<p><img width=\"120\" src=\"http://news.example.com/img/" +
            n +
            ".jpg\" alt=\"\" />The <b>new firmware</b> brings a faster log rate, a quieter tone in the "
            "climb and a <a href=\"http://news.example.com/manual\">revised manual</a>. Update through the "
            "transmitter's update tool; the settings stay as they are.</p><p>Thanks to everyone who sent "
            "logs from the field &amp; the spring meeting, in particular the glider pilots who tested the "
            "new averager over several weekends.</p>]]></description></item>\n";
    }
    return xml + "</channel></rss>\n";
}
} // namespace

int main(int argc, char *argv[])
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    const int items = argc > 1 ? std::max(1, atoi(argv[1])) : 200;
    const int runs = argc > 2 ? std::max(3, atoi(argv[2])) : 15;
    const QByteArray bytes = feed(items);
    NewsFeed::Parsed parsed;
    Timing parse;
    for (int i = 0; i < runs; ++i)
        parse.add([&] { parsed = NewsFeed::parse(bytes); });
    const QString page = NewsFeed::page(parsed.rows);
    std::printf(
        "news: feed of %d items (%.1f kB), %d rows shown (page %.1f kB), %d pictures fetched, %d runs\n",
        items, bytes.size() / 1024.0, parsed.items, page.size() / 1024.0, int(parsed.images.size()), runs);
    parse.print("read the feed into rows");

    // The window's view: its style sheet, 400 px wide as a docked window usually is.
    QTextBrowser view;
    view.resize(400, 700);
    view.show();
    QTextDocument *doc = view.document();
    Timing layout;
    Timing pictures;
    double height = 0;
    const QImage picture = QImage(80, 60, QImage::Format_RGB32);
    for (int i = 0; i < runs; ++i) {
        layout.add([&] {
            doc->addResource(QTextDocument::StyleSheetResource, QUrl("format.css"), NewsFeed::styleSheet());
            doc->setHtml(page);
            height = doc->size().height();
        });
        // The pictures arrive and the window lays the page out again, once for all that came together.
        pictures.add([&] {
            for (const QString &url : qAsConst(parsed.images))
                doc->addResource(QTextDocument::ImageResource, QUrl(url), picture);
            doc->markContentsDirty(0, doc->characterCount());
            height = doc->size().height();
        });
    }
    std::printf("  page %.0f px wide, %.0f px tall\n", doc->textWidth(), height);
    layout.print("set the page and lay it out");
    pictures.print("add the pictures and lay the page out again");
    return 0;
}
