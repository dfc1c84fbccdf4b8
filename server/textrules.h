#pragma once

#include <QString>
#include <QStringView>
#include <span>

namespace linkhop::server {

// What is wrong with a player name, in words for the log; empty text for a usable name. A name may
// not be empty, longer than `maxLength`, begin or end with a space, hold two spaces in a row, "="
// or ";", a space other than the ordinary one (no-break, thin, ...), or any control, format or
// invisible character (soft hyphen, zero-width, direction marks, fillers, unassigned code points).
QString NameProblem(QStringView name, qsizetype maxLength);

// What a name reads as: compatibility forms folded (full-width letters, ligatures), letter case
// folded, invisible characters left out, runs of spaces made one, and letters that look alike in
// the game's font made one (I, l, 1 and |; O and 0; Cyrillic and Greek letters that look Latin).
// Two names with the same key cannot both be in the room.
QString NameKey(QStringView name);

// Whether a name reads as one that the clients give a meaning of their own ("GAME" for game notices,
// "Current Time" for the time), also followed by a colon, as a chat line shows a speaker.
bool IsReservedName(QStringView name);

// What is wrong with a round's word, in words for the chooser; empty text for a usable word: control,
// format or invisible characters, spaces other than the ordinary one.
QString WordProblem(QStringView word);

// Whether relayed chat text holds characters that would let it pass for other lines: line breaks
// and other control characters, line and paragraph separators, and direction overrides.
bool ChatForgesLines(QStringView text);

// The words a client reports instead of a title for a page a round forbids ("talk", "nowiki", ...).
std::span<const QStringView> ForbiddenWords();
bool IsForbiddenWord(QStringView word);

// Titles name the same article when they differ only in letter case or "_" for a space.
QString ArticleKey(QStringView title);

// Why MediaWiki could give no page this title, in words for the players; empty text when it could.
// Such a title holds "#", "<", ">", "[", "]", "{", "}" or "|", a control character, a percent
// escape, the replacement character or "~~~", is a relative path (".", "../x", "x/./y", ...), or
// is longer than 255 bytes of UTF-8 after its namespace. A title that passes may still be one the
// encyclopedia refuses; it says so when asked.
QString TitleProblem(QStringView title);

// A title as a game line shows it: control characters as "?", and cut after 60 characters.
QString ShownTitle(QStringView title);

// "10 minutes", "1 minute", "30 seconds".
QString Duration(qint64 ms);

} // namespace linkhop::server
