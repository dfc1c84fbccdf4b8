#pragma once

#include "encyclopedia.h"
#include "referee.h"
#include "serverconfig.h"
#include "stalenotices.h"

#include <QHash>
#include <QHostAddress>
#include <QMap>
#include <QSet>
#include <QString>
#include <QStringList>
#include <QStringView>
#include <deque>
#include <functional>
#include <random>
#include <utility>

namespace linkhop::server {

// Where a client listens: the address a datagram came from and the port it announced.
struct Endpoint
{
    QHostAddress Address;
    quint16 Port = 0;

    friend bool operator==(const Endpoint& a, const Endpoint& b)
    {
        return a.Port == b.Port && a.Address == b.Address;
    }
    QString ToString() const;
};
size_t qHash(const Endpoint& endpoint, size_t seed = 0) noexcept;

// Where a room's datagrams and its log of events go.
class RoomOutput
{
public:
    virtual ~RoomOutput() = default;
    virtual void Send(const QString& text, const Endpoint& to) = 0;
    virtual void Event(const QString& line) = 0;
    // A player took a place at `where`, or left it.
    virtual void Seated(const Endpoint& where, bool present)
    {
        Q_UNUSED(where);
        Q_UNUSED(present);
    }
};

struct Player
{
    quint64 Id = 0; // order of arrival
    QString Name;
    Endpoint Where;
    qint32 Wins = 0;
    qint32 Clicks = 0;
    qint32 RoundClicks = 0;
    qint32 Ping = 0;
    bool InGame = true;   // as "SCOREIS" reports it
    bool Entered = false; // takes part in the running round, from its start or through "GETWORDS"
    bool Racing = false;  // entered and not disqualified
    QString NoticeFor;    // the page of a disqualification whose game notice is still to come
    qint64 LastHeardMs = 0;
    // What the player may still have relayed in chat now: lines, bytes; and when it was told it
    // may not, so that it is told once a while and not on every line.
    double ChatLines = 0;
    double ChatBytes = 0;
    qint64 ChatMs = 0;
    qint64 ChatNoteMs = -1;
    bool ScoreDirty = false; // the others have not yet been told this player's score
    bool PingDirty = false;  // nor this player's ping
};

// One game server's room: who may join, the players, the rounds and the relay of their messages;
// datagrams in (text, sender address, sender port), datagrams and event lines out through a
// RoomOutput. Who wins a round is its Referee's to say. No sockets and no timers of its own: the
// owner calls Tick() now and then, and the clock is injectable, so tests and the fuzzer drive it
// directly.
class Room final : private RefereeOutput
{
    Q_DISABLE_COPY_MOVE(Room)

public:
    using Clock = std::function<qint64()>; // milliseconds, never going back

    Room(ServerConfig config, RoomOutput& output, Clock clock = {});

    // The encyclopedia that vouches for wins and finds each round's shortest route; none: every
    // win stands unchecked, and no route is told.
    void SetEncyclopedia(Encyclopedia* encyclopedia) { m_referee.SetEncyclopedia(encyclopedia); }

    void Handle(const QString& text, const QHostAddress& from, quint16 port);
    // Expires connections that never completed, drops silent players, sends merged updates.
    void Tick();
    bool HasPendingFanOut() const { return !m_fanOut.empty(); }
    // Tells every player the server is going away and empties the room.
    void DisconnectAll();

    const QMap<quint64, Player>& Players() const { return m_players; }
    const Player* FindPlayer(QStringView name) const; // ignoring letter case
    QString Chooser() const;
    bool RoundRunning() const { return m_roundRunning; }
    const QStringList& Words() const { return m_words; }
    qsizetype PendingCount() const { return m_pending.size(); }
    quint64 Dropped() const { return m_dropped; }
    const ServerConfig& Config() const { return m_config; }

    // Empty while the room is consistent; otherwise what is wrong.
    QString CheckInvariants() const;

private:
    struct Incoming
    {
        const QString& text;
        Endpoint from;  // the datagram's source address and port
        Player* player; // the player speaking from there, if any
    };
    using Handler = void (Room::*)(const Incoming&);
    struct Route
    {
        QStringView verb;
        Handler handler;
        bool playersOnly;
    };
    static const Route kRoutes[];

    struct Pending
    {
        QString name;
        qint64 sinceMs;
        quint64 order; // in m_pendingOrder
    };
    struct Guesses // wrong passwords from one address
    {
        int wrong = 0;
        qint64 lastMs = 0;
    };
    enum class Exit
    {
        Leave,
        Drop
    };

    void OnConnect(const Incoming& in);
    void OnGetPlayerList(const Incoming& in);
    void OnGetWords(const Incoming& in);
    void OnDisconnect(const Incoming& in);
    void OnGetScore(const Incoming& in);
    void OnPingMe(const Incoming& in);
    void OnPong(const Incoming& in);
    void OnNavigate(const Incoming& in);
    void OnSendMyPath(const Incoming& in);
    void OnChat(const Incoming& in);
    void OnTime(const Incoming& in);
    void OnGetRandom(const Incoming& in);
    void OnSetWords(const Incoming& in);
    void OnStatus(const Incoming& in);
    // A player's message from an endpoint that holds no place.
    void TellStale(const QString& text, const Endpoint& from, QStringView verb, qint64 now);

    // Whether the message's NAME is the sender's own.
    static bool FromNamed(const Incoming& in);
    void Refuse(const Endpoint& to, const QString& name, QStringView code, QStringView why);
    // Why `name` cannot join from `where` now: the code and the reason; an empty code when it can.
    std::pair<QStringView, QString> CannotSeat(const QString& name, const Endpoint& where) const;
    // Whether a wrong password from `address` may be checked now; otherwise how long until it may.
    qint64 GuessWaitMs(const QHostAddress& address, qint64 now) const;
    void WrongGuess(const QHostAddress& address, qint64 now);
    void AddPending(const Endpoint& where, const QString& name);
    void RemovePending(Endpoint where); // a copy: callers pass keys of the tables it changes
    void AddPlayer(const QString& name, const Endpoint& where);
    void RemovePlayer(quint64 id, Exit how);
    void StartRound(const QString& initial, const QString& destination);
    // `notice`: the page the player's own notice may name; `why`: the reason, for the log.
    void PutOut(Player& player, const QString& notice, const QString& why);
    void Win(Player& player);
    // `why`, when given, is told to everyone first as a game line.
    void EndRoundWithoutWinner(const QString& why = {});
    bool AnyoneRacing() const;

    // The referee's word.
    void Disqualified(quint64 racer, const QString& notice, const QString& why) override;
    void Won(quint64 racer, const QString& unchecked) override;
    void RaceEnded(const QString& why) override;
    void Tell(const QString& line) override;
    Player* ChooserPlayer();

    void SendTo(const Player& player, const QString& text);
    void Broadcast(const QString& text, quint64 except = 0);
    void RefillBudget();
    bool BudgetAllows(double datagrams, double bytes) const;
    // Tells a player once in a while why its chat line went nowhere.
    void ChatNote(Player& player, const QString& why);
    // Tells everyone a player's score (or ping), at once while the budget allows, else the player
    // at once and the others when the merged update's turn comes.
    void ScoreChanged(Player& player);
    void PingChanged(Player& player);
    void FlushFanOut();
    QString ScoreOf(const Player& player) const;

    void Log(const QString& line) override { m_output.Event(line); }
    // For lines a stranger can cause at will: a few at once, then a few a second, the rest counted.
    void LogLimited(const QString& line);

    ServerConfig m_config;
    RoomOutput& m_output;
    Clock m_clock;
    std::mt19937 m_random;

    QMap<quint64, Player> m_players; // by id, so in order of arrival
    QHash<Endpoint, quint64> m_byEndpoint;
    QHash<QString, quint64> m_byName; // by NameKey
    QSet<QString> m_bannedKeys;       // the banned names' NameKey
    QHash<QHostAddress, int> m_playersAt;
    qsizetype m_nameBytes = 0; // the players' names on the wire, for the size of "PLAYERLIST"
    quint64 m_nextId = 1;
    quint64 m_chooser = 0;

    // Accepted, waiting for "GETPLAYERLIST"; keyed by reply endpoint, oldest first in the order.
    QHash<Endpoint, Pending> m_pending;
    QMap<quint64, Endpoint> m_pendingOrder;
    QHash<QHostAddress, int> m_pendingAt;
    quint64 m_nextPending = 1;
    QHash<QHostAddress, Guesses> m_guesses;

    bool m_roundRunning = false;
    QStringList m_words;
    qint64 m_roundStartMs = 0;
    Referee m_referee;
    // The winner whose route is still to come. If it never comes nothing is sent in its place: the
    // winner's client opens its chooser on "WINNER" anyway, and the next round ends the wait.
    quint64 m_pathFrom = 0;

    std::deque<quint64> m_fanOut; // players with updates the others have not seen
    double m_budget = 0;
    double m_byteBudget = 0;
    qint64 m_budgetMs = 0;

    StaleNotices m_stale;

    quint64 m_dropped = 0;
    double m_logTokens = 0;
    qint64 m_logMs = 0;
    quint64 m_logSkipped = 0;
    qint64 m_lastSummaryMs = 0;
};

} // namespace linkhop::server
