#pragma once

#include <QUrl>

// Where the maker's update service lives: the program's catalogues and the transmitter lists. No address is
// built in: without the variable set there is nothing to ask, and the tool says so.
struct UpdateEndpoints
{
    static constexpr const char *kUpdateUrlVariable = "VEXO_UPDATE_URL";
    static constexpr const char *kTxUpdateUrlVariable = "VEXO_TX_UPDATE_URL";
    // The folder holding "Update.xml" and "DevUpdate.xml", with a trailing slash; empty when none is set
    // or it is not an http or https address.
    static QUrl updateFolder() { return folder(kUpdateUrlVariable); }
    // The folder holding "update.json" and "apps.json", likewise.
    static QUrl txUpdateFolder() { return folder(kTxUpdateUrlVariable); }

private:
    static QUrl folder(const char *variable)
    {
        QString value = qEnvironmentVariable(variable).trimmed();
        if (value.isEmpty())
            return QUrl();
        if (!value.endsWith(QLatin1Char('/')))
            value += QLatin1Char('/');
        const QUrl url(value);
        const QString scheme = url.scheme().toLower();
        if (!url.isValid() || url.host().isEmpty() ||
            (scheme != QLatin1String("http") && scheme != QLatin1String("https")))
            return QUrl();
        return url;
    }
};
