#pragma once

#include <QList>
#include <QMap>
#include <QSet>
#include <QString>
#include <QStringView>

namespace linkhop {

struct PlayerRecord
{
    QString Name;
    qint32 Wins = 0;
    qint32 Clicks = 0;
    qint32 RoundClicks = 0;
    qint32 Ping = 0;
    QString InGame = QStringLiteral("yes");
};

// The round's words, indexes 0 to size - 1. Stored sparsely: a round announced with a huge count
// holds only the words its datagram carried, and every other index reads as empty text.
class WordList
{
public:
    WordList() = default;
    static WordList OneEmpty() { return WordList(1, {}); }
    WordList(qint64 size, QMap<qint32, QString> words) : m_size(size), m_words(std::move(words)) {}
    // The words of a "STARTGAME": indexes 0 to COUNT. Throws Fault when COUNT is no number or
    // negative, which leaves no list to build.
    static WordList FromStartGame(QStringView startGame);

    qint64 size() const { return m_size; }
    QString at(qint64 index) const;

private:
    qint64 m_size = 0;
    QMap<qint32, QString> m_words;
};

// Everything one client knows about its session: the shared variables and the roster.
// The roster is 1-based, as the protocol numbers its players.
class SessionData
{
public:
    QString ServerAddress;
    QString PlayerName;
    QString LocalPort;
    QString ChosenServer;
    bool JoinInProgress = false;
    bool InRound = false;
    QString ChooserName;
    QString CurrentArticle;
    QString RoutePath;
    WordList Words;
    qint32 TargetWordIndex = 0;

    qint32 PlayerCount() const { return qint32(m_players.size()); }
    // Entry i (1-based); an index outside the roster throws Fault.
    PlayerRecord& Player(qint32 index);
    const PlayerRecord& Player(qint32 index) const;
    const QList<PlayerRecord>& Players() const { return m_players; }

    // The most players and the longest name a roster takes. No server has more or longer: one
    // that sends them could otherwise grow the roster, and the cost of every refresh of it,
    // without end. The own name (PlayerName, in any letter case) is never held off by them.
    static constexpr qint32 kMaxPlayers = 1000;
    static constexpr qsizetype kMaxNameLength = 64;

    // Adds Name unless a name equal ignoring case is already there. Another player's name is also
    // refused when longer than kMaxNameLength, or when the others already fill all the places but
    // the one kept for the own name.
    void AddPlayer(const QString& name);
    // Removes the entry whose name equals Name ignoring case; later entries move down.
    void RemovePlayer(const QString& name);
    // Index of the first entry named exactly Name (case-sensitive), 0 when none.
    qint32 FindPlayer(const QString& name) const;
    // Clears the round's words, target, round flag and chooser; keeps roster and route.
    void ResetGameData();

    // The players of a "PLAYERLIST", added in order "P1" to "P<COUNT>"; a missing field adds the
    // empty name. A COUNT that is no number throws Fault before anything changes.
    void AddPlayersFrom(QStringView playerList);

private:
    qint32 IndexIgnoringCase(const QString& name) const;
    QList<PlayerRecord> m_players;
    QSet<QString> m_lowerNames; // every roster name in lower case, for AddPlayer's check
};

} // namespace linkhop
