#pragma once

#include <QString>
#include <QtGlobal>

// Where map images come from. Every address can be replaced through the environment so a user (or a test)
// can point the map at another server. No API key is built in: a keyed provider without a key from the
// settings or the environment is offered disabled.
struct MapEndpoints
{
    // Static-map providers 0 and 1: base address (scheme and host, no path) and API key.
    QString staticMapUrl[2];
    QString apiKey[2];
    // Keyless slippy tiles: {z}, {x} and {y} are replaced by the tile's zoom and indexes.
    QString tilesTemplate;

    // The static-map services are addressed over plain HTTP, as the program always has; since the key
    // travels in the query, VEXO_MAP0_URL / VEXO_MAP1_URL can point them at https:// instead.
    static constexpr const char *kDefaultMap0Url = "http://maps.googleapis.com";
    static constexpr const char *kDefaultMap1Url = "http://dev.virtualearth.net";
    static constexpr const char *kDefaultTilesTemplate = "https://tile.openstreetmap.org/{z}/{x}/{y}.png";

    static constexpr const char *kMap0UrlVariable = "VEXO_MAP0_URL";
    static constexpr const char *kMap1UrlVariable = "VEXO_MAP1_URL";
    static constexpr const char *kMap0KeyVariable = "VEXO_MAP0_KEY";
    static constexpr const char *kMap1KeyVariable = "VEXO_MAP1_KEY";
    static constexpr const char *kTilesUrlVariable = "VEXO_TILES_URL";

    static const char *keyVariable(int provider)
    {
        return provider == 0 ? kMap0KeyVariable : kMap1KeyVariable;
    }

    // The defaults, each replaced by its environment variable when that is set and not empty.
    static MapEndpoints fromEnvironment()
    {
        MapEndpoints e;
        e.staticMapUrl[0] = fromEnv(kMap0UrlVariable, QString::fromLatin1(kDefaultMap0Url));
        e.staticMapUrl[1] = fromEnv(kMap1UrlVariable, QString::fromLatin1(kDefaultMap1Url));
        e.apiKey[0] = fromEnv(kMap0KeyVariable, QString()).trimmed();
        e.apiKey[1] = fromEnv(kMap1KeyVariable, QString()).trimmed();
        e.tilesTemplate = fromEnv(kTilesUrlVariable, QString::fromLatin1(kDefaultTilesTemplate));
        return e;
    }

private:
    static QString fromEnv(const char *name, const QString &fallback)
    {
        const QString value = qEnvironmentVariable(name);
        return value.isEmpty() ? fallback : value;
    }
};
