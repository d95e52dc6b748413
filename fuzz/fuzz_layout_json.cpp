// The layout reader on arbitrary bytes: whatever it accepts, its compact text is valid JSON that reads
// back to the same text.
#include "widgets/layout/LayoutDocument.h"
#include "widgets/layout/LayoutJsonReader.h"

#include <QJsonDocument>

#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray bytes(reinterpret_cast<const char *>(data), int(size));
    LayoutJsonReader reader;
    LayoutJsonValue value;
    if (!reader.parse(bytes, &value)) {
        if (reader.errorString().isEmpty())
            std::abort(); // a refusal always says why
        return 0;
    }
    const QByteArray text = value.text();
    LayoutJsonValue again;
    if (!reader.parse(text, &again) || again.text() != text)
        std::abort();
    QJsonParseError error;
    QJsonDocument::fromJson(text, &error);
    // Qt refuses a bare scalar document, numbers beyond a double and deeper nesting than ours; anything
    // else must agree.
    if (error.error != QJsonParseError::NoError && (value.isObject() || value.isArray()) &&
        error.error != QJsonParseError::DeepNesting && error.error != QJsonParseError::IllegalNumber)
        std::abort();
    QString reason;
    LayoutJsonValue root;
    LayoutDocument::parse(bytes, &root, &reason);
    return 0;
}
