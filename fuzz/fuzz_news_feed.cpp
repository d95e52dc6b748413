// The news feed reader on arbitrary bytes: nothing in a feed becomes markup of its own, every row has its
// place in the template, and only web pictures are fetched, each once and never more than allowed.
#include "tools/NewsFeed.h"

#include <QRegularExpression>
#include <QSet>

#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const NewsFeed::Parsed parsed =
        NewsFeed::parse(QByteArray::fromRawData(reinterpret_cast<const char *>(data), int(size)));
    if (parsed.items < 0 || parsed.items > NewsFeed::kMaxItems ||
        parsed.rows.count(QLatin1String("<tr class=\"")) != parsed.items)
        std::abort();
    static const QSet<QString> templateTags{
        QStringLiteral("tr"),    QStringLiteral("td"),  QStringLiteral("b"), QStringLiteral("br"),
        QStringLiteral("table"), QStringLiteral("div"), QStringLiteral("a"), QStringLiteral("img")};
    static const QRegularExpression tag(QStringLiteral("</?([^\\s>/]*)"));
    for (auto it = tag.globalMatch(parsed.rows); it.hasNext();) {
        if (!templateTags.contains(it.next().captured(1)))
            std::abort();
    }
    if (parsed.rows.count(QLatin1String("<img ")) > parsed.items ||
        parsed.images.size() > NewsFeed::kMaxImages ||
        QSet<QString>(parsed.images.cbegin(), parsed.images.cend()).size() != parsed.images.size())
        std::abort();
    for (const QString &image : parsed.images) {
        if (!NewsFeed::mayOpen(QUrl(image)))
            std::abort();
    }
    return 0;
}
