#pragma once

#include <QString>
#include <QStringView>

namespace linkhop {

// The category word of a forbidden page ("list", "history", ... "number"), or empty text for an
// allowed article. The rules are tested in order on the article title, case-sensitively; "*" in a
// rule stands for any run of characters. "A number" is a whole title (spaces around it allowed)
// of decimal digits with an optional leading sign and an optional decimal point ("1984", "-5",
// "2.5", ".5", "5."), the digits before the point optionally grouped in threes by commas
// ("1,000,000"). Exponents, currency signs and other numerals are not numbers.
QString PageCategory(QStringView articleTitle);

} // namespace linkhop
