#pragma once

#include "core/sessiondata.h"

#include <QHostAddress>
#include <QList>
#include <QPair>
#include <QString>
#include <QStringList>
#include <QStringView>

namespace linkhop::server {

// Everything a room needs to know before its first datagram: the host's settings from the option
// files beside the program, the article list, and the limits that tests shorten.
struct ServerConfig
{
    QString Welcome;  // "%p" and "%v" are expanded when a player joins
    QString Password; // empty: a public server
    QStringList BannedNames;
    QList<QPair<QHostAddress, int>> BannedSubnets;
    QStringList Articles;

    qint64 SilenceMs = 35000; // a player heard from for this long is dropped
    // An accepted connection that does not ask for the players within this time expires. A client
    // asks as soon as the acceptance arrives, so a few seconds cover any round trip.
    qint64 PendingMs = 5000;
    int MaxDatagram = 4096; // longer datagrams are not read
    // No more players, and no longer names, than a client's roster takes.
    int MaxPlayers = SessionData::kMaxPlayers;
    int MaxNameLength = int(SessionData::kMaxNameLength);
    int MaxPerAddress = 8;        // players one address may hold
    int MaxPending = 1024;        // accepted connections awaiting their player list, all addresses
    int MaxPendingPerAddress = 4; // beyond this an address's oldest pending connection goes
    // Wrong passwords from one address: this many are checked at once, then each next guess waits
    // twice as long as the one before, from GuessWaitMs up to MaxGuessWaitMs.
    int FreeGuesses = 3;
    qint64 GuessWaitMs = 1000;
    qint64 MaxGuessWaitMs = 60000;

    // Per source address, before anything else is done with a datagram.
    double FloodRate = 200;           // datagrams per second
    double FloodBurst = 200;          // datagrams at once
    double FloodByteRate = 64 * 1024; // bytes per second, headers included
    double FloodByteBurst = 128 * 1024;
    double StrangerRate = 5000; // datagrams per second from all addresses without a player together
    // An endpoint that holds no place and speaks as a player (a client of the room before the
    // server restarted) is told "DISCONNECT" at most once in this while, and all such endpoints
    // together at most this many times a second.
    qint64 StaleNoticeMs = 5000;
    double StaleNoticeRate = 50;

    // Chat lines one player may have relayed: a burst, then a steady rate, in lines and in bytes.
    double ChatLineRate = 1;
    double ChatLineBurst = 5;
    double ChatByteRate = 2048;
    double ChatByteBurst = 8192;
    // Score and ping updates about one player to the others are sent at once while the room stays
    // under this many datagrams (and bytes) per second; above it they are merged and sent as budget
    // allows. Chat lines are relayed only while the budget has room for them.
    double FanOutRate = 20000;
    double FanOutByteRate = 2 * 1024 * 1024;
    quint32 Seed = 0; // 0: seeded from the system's entropy

    // The encyclopedia, asked through its API: a host, or a base address; empty: never asked.
    QString Site;
    // Who the encyclopedia's operators may write to about this server's requests (option
    // "Contact"): an address or a web page, sent in the User-Agent as their policy asks.
    QString Contact = QStringLiteral(LINKHOP_CONTACT);
    // A round that nobody wins ends after this long, 0 for never (option "RoundMinutes", in
    // minutes). Races are usually won within a few minutes; ten leave a hard one time while freeing
    // a room whose destination nobody can find.
    qint64 RoundMs = 10 * 60000;
    // A person needs at least this long for a click: the page loads, the eye finds the next link.
    // A route may hold QuickPages new pages beyond one per MsPerClick since the round began; a
    // 10-minute round, 320 at most. More puts the racer out: nobody clicks so fast, and the checks
    // a forger could make the server ask stay bounded.
    qint64 MsPerClick = 2000;
    qsizetype QuickPages = 20;
    // What the server asks the encyclopedia, at most, whatever the players do: requests a second
    // (one at a time) after a burst, and requests a round, checks and search together. At the
    // rate, a 10-minute round could send 6,000; the round's cap holds for longer rounds.
    double ApiRate = 10;
    double ApiBurst = 10;
    quint64 RoundRequests = 6000;
    // The search for each round's shortest route: its longest route, requests and time.
    int SearchMaxClicks = 6;
    quint64 SearchMaxRequests = 400;
    qint64 SearchMaxMs = 60000;
};

// Reads "Welcome", "Password", "BannedNames", "BannedIPs", "RoundMinutes", "Contact" and the article
// list from `folder`.
// Every problem worth telling the host about is added to `warnings`.
ServerConfig LoadServerConfig(const QString& folder, QStringList* warnings = nullptr);

// One article title per line; blank lines and titles a client could not report are left out.
// A missing file yields the built-in list and a warning.
QStringList LoadArticles(const QString& fileName, QStringList* warnings = nullptr);
QStringList FallbackArticles();

// "BannedIPs" entries: single addresses or subnets written address/prefix.
QList<QPair<QHostAddress, int>> ParseBannedAddresses(const QStringList& entries,
                                                     QStringList* warnings = nullptr);

// The welcome text with "%p" replaced by the number of players and "%v" by the server's version.
QString ExpandWelcome(QStringView text, int players);

// Whether a client would report a page of this title as forbidden: such a word can never be reached
// in a round.
bool IsForbiddenTitle(QStringView title);

} // namespace linkhop::server
