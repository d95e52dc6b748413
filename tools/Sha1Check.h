#pragma once

#include <QString>

// SHA1 checks shared by the downloaders and their callers: a file is hashed in pieces, so checking a large
// download needs no more memory than a small one.
namespace Sha1Check {
// True for exactly 40 hexadecimal digits after trimming (either case).
bool isValidHex(const QString &hex);
// Lower-case hexadecimal SHA1 of the file; empty when it cannot be read (error says why).
QString fileHex(const QString &path, QString *error = nullptr);
// Compares a computed hash with an expected one, ignoring case and surrounding blanks; an expected value
// that is not valid never matches.
bool matches(const QString &actualHex, const QString &expectedHex);
// fileHex + matches.
bool fileMatches(const QString &path, const QString &expectedHex, QString *error = nullptr);
} // namespace Sha1Check
