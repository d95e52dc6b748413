#include "tools/NewsFeed.h"

#include "tests/support/LocalHttpServer.h"

#include <QtTest>

#include <zlib.h>

using Reply = LocalHttpServer::Reply;
Q_DECLARE_METATYPE(LocalHttpServer::Reply)

namespace {
// The row as the news page lays it out, filled in independently of the parser.
QString row(const QString &title, const QString &link, const QString &cls, const QString &text,
            const QString &image = QString())
{
    QString r = "<tr class=\"%3\"><td class=\"article\"><b>%1</b><br><table cellpadding=\"5\"><tr><td "
                "bgcolor=\"#ffffff\" valign=\"middle\">%5</td><td  valign=\"top\"><div "
                "align=\"justify\">%4</div><div "
                "align=\"right\"><a href=\"%2\">Detail</a></td></tr></table></td></tr>";
    const QString cell = image.isEmpty() ? QString() : "<img  src=\"" + image + "\" >";
    return r.replace("%1", title)
        .replace("%2", link)
        .replace("%3", cls)
        .replace("%5", cell)
        .replace("%4", text);
}

QByteArray item(const QByteArray &title, const QByteArray &link, const QByteArray &description)
{
    return "<item><title>" + title + "</title><link>" + link + "</link><description>" + description +
           "</description></item>";
}

QByteArray rss(const QByteArray &items, const QByteArray &prolog = QByteArray())
{
    return "<?xml version=\"1.0\"?>" + prolog + "<rss version=\"2.0\"><channel><title>News</title>" + items +
           "</channel></rss>";
}

QByteArray chunk(const QByteArray &type, const QByteArray &data)
{
    QByteArray bytes;
    QDataStream out(&bytes, QIODevice::WriteOnly);
    out << quint32(data.size());
    out.writeRawData(type + data, 4 + data.size());
    out << quint32(
        crc32(0, reinterpret_cast<const Bytef *>((type + data).constData()), uInt(4 + data.size())));
    return bytes;
}

// A PNG that claims width × height pixels and holds none.
QByteArray pngHeader(quint32 width, quint32 height)
{
    QByteArray ihdr;
    QDataStream(&ihdr, QIODevice::WriteOnly)
        << width << height << quint8(8) << quint8(2) << quint8(0) << quint8(0) << quint8(0);
    return QByteArray("\x89PNG\r\n\x1a\n", 8) + chunk("IHDR", ihdr) + chunk("IDAT", QByteArray()) +
           chunk("IEND", QByteArray());
}

QByteArray png(int width, int height)
{
    QImage image(width, height, QImage::Format_RGB32);
    image.fill(Qt::darkCyan);
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    image.save(&buffer, "PNG");
    return bytes;
}
} // namespace

class tst_NewsFeed : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase()
    {
        QCoreApplication::setApplicationName("Vexo Studio");
        QCoreApplication::setApplicationVersion("1.2.3");
    }

    void pagesAreTheGivenTexts()
    {
        const QString head = "<html><head><link rel='stylesheet' type='text/css' href='format.css'></head>";
        QCOMPARE(NewsFeed::page("R"),
                 head + "<body><table width=\"100%\"><tr><td></td> <td width=\"320\"><table>"
                        "R</table></td><td></td></tr></body></html>");
        QCOMPARE(NewsFeed::placeholderPage("Vexo RSS"),
                 head + "<body><table width=\"100%\"><tr><td></td> <td width=\"300\"><table><h1 "
                        "align=\"center\">Vexo RSS</h1></table></td><td></td></tr></body></html>");
        QCOMPARE(
            NewsFeed::styleSheet(),
            ".article { padding-top:10px; padding-right:10px; padding-bottom: 5px; padding-left: 10px;  } a "
            "{color: #fa0103; }h1 {font-size:16px;color:#eeeeee}.odd {background-color:#eeeeee}");
    }

    void rows_data()
    {
        QTest::addColumn<QByteArray>("items");
        QTest::addColumn<QString>("rows");
        QTest::addColumn<QStringList>("images");
        const QString link = "http://example.com/1";
        QTest::newRow("one item") << item("First", link.toUtf8(), "Plain text")
                                  << row("First", link, "odd", "Plain text") << QStringList();
        QTest::newRow("paragraph in CDATA") << item("T", "L", "<![CDATA[<p>Hello <b>world</b></p>]]>")
                                            << row("T", "L", "odd", "Hello world") << QStringList();
        QTest::newRow("whitespace-only text skipped")
            << item("T", "L", "\n   <![CDATA[x]]>\n  ") << row("T", "L", "odd", "x") << QStringList();
        QTest::newRow("two images keep the first")
            << item("T", "L",
                    "<![CDATA[<img alt=\"a\" src=\"http://h/a.png\" /><img src=\"http://h/b.png\">Text]]>")
            << row("T", "L", "odd", "Text", "http://h/a.png") << QStringList{"http://h/a.png"};
        QTest::newRow("three rows alternate")
            << item("A", "1", "a") + item("B", "2", "b") + item("C", "3", "c")
            << row("A", "1", "odd", "a") + row("B", "2", "even", "b") + row("C", "3", "odd", "c")
            << QStringList();
        // Hostile feeds: nothing in them becomes markup, and no picture comes from disk.
        QTest::newRow("markup in title and link")
            << item("<![CDATA[<b>T</b>]]>", "javascript:alert(\"x\")", "d")
            << row("&lt;b&gt;T&lt;/b&gt;", "javascript:alert(&quot;x&quot;)", "odd", "d") << QStringList();
        QTest::newRow("local picture") << item("T", "L", "<![CDATA[<img src=\"file:///etc/passwd\">d]]>")
                                       << row("T", "L", "odd", "d") << QStringList();
        QTest::newRow("unclosed tag")
            << item("T", "L", "<![CDATA[a < b <img src=\"/dev/zero\"]]>")
            << row("T", "L", "odd", "a &lt; b &lt;img src=&quot;/dev/zero&quot;") << QStringList();
    }
    void rows()
    {
        QFETCH(QByteArray, items);
        QFETCH(QString, rows);
        QFETCH(QStringList, images);
        const NewsFeed::Parsed parsed = NewsFeed::parse(rss(items));
        QCOMPARE(parsed.error, QString());
        QCOMPARE(parsed.rows, rows);
        QCOMPARE(parsed.images, images);
    }

    void xmlErrorKeepsEarlierRows()
    {
        const NewsFeed::Parsed parsed = NewsFeed::parse(
            rss(item("A", "1", "a") + "\n" + item("B", "2", "b") + "\n<item><title>C</link>"));
        QCOMPARE(parsed.rows, row("A", "1", "odd", "a") + row("B", "2", "even", "b"));
        QVERIFY2(parsed.error.startsWith("XML ERROR:3: "), qPrintable(parsed.error));
    }

    void entityDeclarationsRefuseTheFeed_data()
    {
        QTest::addColumn<QByteArray>("prolog");
        QTest::addColumn<QByteArray>("title");
        QTest::addColumn<bool>("read");
        QByteArray laughs = "<!DOCTYPE rss [<!ENTITY l0 \"ha\">";
        for (int i = 1; i < 10; ++i)
            laughs += "<!ENTITY l" + QByteArray::number(i) + " \"" +
                      ("&l" + QByteArray::number(i - 1) + ";").repeated(10) + "\">";
        QTest::newRow("billion laughs") << laughs + "]>" << QByteArray("&l9;") << false;
        QTest::newRow("external file")
            << QByteArray("<!DOCTYPE rss [<!ENTITY x SYSTEM \"file:///etc/passwd\">]>") << QByteArray("&x;")
            << false;
        QTest::newRow("doctype without entities") << QByteArray("<!DOCTYPE rss>") << QByteArray("T") << true;
    }
    void entityDeclarationsRefuseTheFeed()
    {
        QFETCH(QByteArray, prolog);
        QFETCH(QByteArray, title);
        QFETCH(bool, read);
        const NewsFeed::Parsed parsed = NewsFeed::parse(rss(item(title, "L", "d"), prolog));
        QCOMPARE(parsed.items, read ? 1 : 0);
        QCOMPARE(parsed.error.isEmpty(), read);
        QVERIFY(parsed.rows.size() < 1000);
    }

    void onlyWebLinksOpen_data()
    {
        QTest::addColumn<QString>("url");
        QTest::addColumn<bool>("opens");
        QTest::newRow("http") << "http://example.com/a?b=1" << true;
        QTest::newRow("https") << "HTTPS://example.com/" << true;
        QTest::newRow("file") << "file:///etc/passwd" << false;
        QTest::newRow("script") << "javascript:alert(1)" << false;
        QTest::newRow("custom scheme") << "vexo-update://install" << false;
        QTest::newRow("data") << "data:text/html,<b>x</b>" << false;
        QTest::newRow("relative") << "news/1.html" << false;
        QTest::newRow("no host") << "http:///etc/passwd" << false;
    }
    void onlyWebLinksOpen()
    {
        QFETCH(QString, url);
        QFETCH(bool, opens);
        QCOMPARE(NewsFeed::mayOpen(QUrl(url)), opens);
    }

    void thumbnails_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<QSize>("size");
        QTest::addColumn<QString>("why");
        QTest::newRow("wide") << png(160, 60) << QSize(80, 30) << "";
        QTest::newRow("small grows to fit") << png(40, 40) << QSize(60, 60) << "";
        QTest::newRow("100000 a side") << pngHeader(100000, 100000) << QSize(0, 0) << "100000 × 100000";
        QTest::newRow("one side too long") << pngHeader(8001, 1) << QSize(0, 0) << "8001 × 1";
        QTest::newRow("too many pixels") << pngHeader(5000, 4000) << QSize(0, 0) << "5000 × 4000";
        QTest::newRow("header only") << pngHeader(40, 40) << QSize(0, 0) << "decode";
        QTest::newRow("too many bytes")
            << png(40, 40) + QByteArray(2 * 1024 * 1024, '\0') << QSize(0, 0) << "kB";
        QTest::newRow("not a picture") << QByteArray("<html>404</html>") << QSize(0, 0) << "no size";
    }
    void thumbnails()
    {
        QFETCH(QByteArray, bytes);
        QFETCH(QSize, size);
        QFETCH(QString, why);
        QString reason;
        const QImage image = NewsFeed::thumbnail(bytes, &reason);
        QCOMPARE(image.size(), size);
        QVERIFY2(reason.contains(why), qPrintable(reason));
    }

    // A feed with more pictures than are fetched, the first of them absurd.
    void fetchBringsPageAndPictures()
    {
        LocalHttpServer server;
        QByteArray items;
        for (int i = 0; i < 25; ++i) {
            const QByteArray path = "/img/" + QByteArray::number(i) + ".png";
            server.setReply(path, Reply::ok(i == 0 ? pngHeader(100000, 100000) : png(160, 120), "image/png"));
            items += item("T", "L", "<![CDATA[<img src=\"" + server.url(path).toUtf8() + "\">]]>");
        }
        server.setReply("/feed.xml", Reply::ok(rss(items), "application/rss+xml"));
        NewsFeed feed;
        QSignalSpy pages(&feed, &NewsFeed::feedReady);
        QSignalSpy images(&feed, &NewsFeed::imageReady);
        QSignalSpy finished(&feed, &NewsFeed::finished);
        QVERIFY(feed.fetch(server.url("/feed.xml")));
        QVERIFY(finished.wait(20000));
        QCOMPARE(pages.size(), 1);
        QCOMPARE(pages[0][0].toString().count("<tr class="), 25);
        QCOMPARE(server.requests().value(0).header("user-agent"), QByteArray("Vexo-Studio/1.2.3"));
        QCOMPARE(server.requestCount() - 1, NewsFeed::kMaxImages);
        QCOMPARE(images.size(), NewsFeed::kMaxImages - 1);
        for (const QList<QVariant> &image : images) {
            QVERIFY(image[0].toUrl() != QUrl(server.url("/img/0.png")));
            QCOMPARE(image[1].value<QImage>().size(), QSize(80, 60));
        }
        QVERIFY(!feed.isLoading());
    }

    void badRepliesLeaveThePlaceholder_data()
    {
        QTest::addColumn<Reply>("reply");
        Reply flood = Reply::ok("<rss><channel><item><title>x</title></item>");
        flood.fault = Reply::Flood;
        flood.floodBytes = 100 * 1024 * 1024;
        QTest::newRow("100 MB declared") << flood;
        flood.fault = Reply::FloodUnsized;
        QTest::newRow("100 MB, no length") << flood;
        QTest::newRow("not found") << Reply::error(404, rss(item("T", "L", "d")));
    }
    void badRepliesLeaveThePlaceholder()
    {
        LocalHttpServer server;
        QFETCH(Reply, reply);
        server.setReply("/feed.xml", reply);
        NewsFeed feed;
        QSignalSpy pages(&feed, &NewsFeed::feedReady);
        QSignalSpy failed(&feed, &NewsFeed::feedFailed);
        QSignalSpy finished(&feed, &NewsFeed::finished);
        QVERIFY(feed.fetch(server.url("/feed.xml")));
        QVERIFY(finished.wait(20000));
        QCOMPARE(failed.size(), 1);
        QCOMPARE(pages.size(), 0);
    }
};

QTEST_GUILESS_MAIN(tst_NewsFeed)
#include "tst_NewsFeed.moc"
