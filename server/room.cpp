#include "room.h"

#include "core/fault.h"
#include "core/messages.h"
#include "core/version.h"
#include "core/wire.h"
#include "textrules.h"

#include <QDateTime>
#include <QElapsedTimer>
#include <QLocale>
#include <QSet>
#include <algorithm>
#include <limits>
#include <memory>

using namespace Qt::Literals::StringLiterals;

namespace linkhop::server {

namespace {

constexpr qsizetype kMaxWordLength = 255;
constexpr qint64 kMaxPingMs = 60000;
// The longest datagram IPv4 carries: "PLAYERLIST" must fit in one, or it never arrives.
constexpr qsizetype kMaxPayload = 65507;
// Addresses whose wrong passwords are remembered; and for how long after the last one.
constexpr qsizetype kMaxGuessers = 4096;
constexpr qint64 kGuessesForgottenMs = 10 * 60 * 1000;
// Log lines that strangers can cause: this many at once, then this many a second.
constexpr double kLogBurst = 50;
constexpr double kLogRate = 5;
constexpr qint64 kLogSummaryMs = 10000;
qsizetype Digits(qsizetype n)
{
    qsizetype digits = 1;
    for (; n >= 10; n /= 10)
        ++digits;
    return digits;
}

// Bytes of "PLAYERLIST COUNT=n;P1=...;...Pn=...;" for n players whose names take `nameBytes`.
qsizetype PlayerListBytes(qsizetype n, qsizetype nameBytes)
{
    qsizetype bytes = verb::PLAYERLIST.size() + 8 + Digits(n) + nameBytes; // " COUNT=" n ";"
    for (qsizetype from = 1, digits = 1; from <= n; from *= 10, ++digits)
        bytes += (std::min(n, from * 10 - 1) - from + 1) * (3 + digits); // "P" i "=" ";"
    return bytes;
}

// Compares without returning early, so that the time taken does not tell how much was right.
bool SameSecret(QStringView a, QStringView b)
{
    char16_t differ = a.size() == b.size() ? 0 : 1;
    for (qsizetype i = 0; i < a.size(); ++i)
        differ |= char16_t(a[i].unicode() ^ b[i % std::max<qsizetype>(1, b.size())].unicode());
    return differ == 0 && !b.isEmpty();
}

// A title as a client would report it: "_" for a space, as the address writes it, is a space.
QString ArticleWord(QStringView title)
{
    QString word = title.trimmed().toString();
    word.replace(u'_', u' ');
    return word;
}

void Increment(qint32& value)
{
    if (value < std::numeric_limits<qint32>::max()) ++value;
}

quint16 PortNumber(QStringView text)
{
    const qint32 port = Number(text);
    if (port < 1 || port > 65535) throw Fault{"not a port"};
    return quint16(port);
}

// IPv4 senders seen through a dual-stack socket look like ::ffff:a.b.c.d; one form for both.
QHostAddress Plain(const QHostAddress& address)
{
    bool isV4 = false;
    const quint32 v4 = address.toIPv4Address(&isV4);
    return isV4 && address.protocol() != QAbstractSocket::IPv4Protocol ? QHostAddress(v4) : address;
}

Room::Clock SteadyClock()
{
    auto timer = std::make_shared<QElapsedTimer>();
    timer->start();
    return [timer] { return timer->elapsed(); };
}

} // namespace

QString Endpoint::ToString() const
{
    return Address.toString() % u':' % QString::number(Port);
}

size_t qHash(const Endpoint& endpoint, size_t seed) noexcept
{
    return qHashMulti(seed, endpoint.Address, endpoint.Port);
}

const Room::Route Room::kRoutes[] = {
    {verb::CONNECT, &Room::OnConnect, false},
    {verb::GETPLAYERLIST, &Room::OnGetPlayerList, false},
    {verb::STATUS, &Room::OnStatus, false},
    {verb::NAVIGATE, &Room::OnNavigate, true},
    {verb::GETSCORE, &Room::OnGetScore, true},
    {verb::PINGME, &Room::OnPingMe, true},
    {verb::PONG, &Room::OnPong, true},
    {verb::CHAT, &Room::OnChat, true},
    {verb::GETWORDS, &Room::OnGetWords, true},
    {verb::DISCONNECT, &Room::OnDisconnect, true},
    {verb::SENDMYPATH, &Room::OnSendMyPath, true},
    {verb::TIME, &Room::OnTime, true},
    {verb::GETRANDOM, &Room::OnGetRandom, true},
    {verb::SETWORDS, &Room::OnSetWords, true},
};

Room::Room(ServerConfig config, RoomOutput& output, Clock clock)
    : m_config(std::move(config)), m_output(output), m_clock(clock ? std::move(clock) : SteadyClock()),
      m_referee(Referee::Rules{m_config.MsPerClick, m_config.QuickPages}, *this, m_clock),
      m_stale(m_config.StaleNoticeMs, m_config.StaleNoticeRate)
{
    if (m_config.Articles.isEmpty()) m_config.Articles = FallbackArticles();
    m_random.seed(m_config.Seed != 0 ? m_config.Seed : std::random_device{}());
    m_budgetMs = m_logMs = m_lastSummaryMs = m_clock();
    m_budget = std::max(m_config.FanOutRate / 10, 1.0);
    m_byteBudget = std::max(m_config.FanOutByteRate / 10, double(m_config.MaxDatagram));
    m_logTokens = kLogBurst;
    for (const QString& banned : std::as_const(m_config.BannedNames))
        m_bannedKeys.insert(NameKey(banned));
}

// --- entry points -------------------------------------------------------------------------------

void Room::Handle(const QString& text, const QHostAddress& address, quint16 port)
{
    const qint64 now = m_clock();
    const Endpoint from{Plain(address), port};
    if (text.size() > m_config.MaxDatagram) {
        ++m_dropped;
        return;
    }
    Player* player = nullptr;
    if (const auto it = m_byEndpoint.constFind(from); it != m_byEndpoint.cend()) {
        player = &m_players[*it];
        player->LastHeardMs = now; // any datagram at all shows the player is still there
    }
    const QString verb = Verb(text);
    for (const Route& route : kRoutes) {
        if (route.verb != verb) continue;
        if (route.playersOnly && !player) {
            TellStale(text, from, verb, now);
            break;
        }
        try {
            (this->*route.handler)(Incoming{text, from, player});
        } catch (const Fault&) {
            ++m_dropped; // a malformed field ends the handling of this datagram
        }
        return;
    }
    ++m_dropped;
}

void Room::TellStale(const QString& text, const Endpoint& from, QStringView verb, qint64 now)
{
    // Its session ended here (the server restarted, or dropped it): told so as every client
    // understands, so that it ends instead of playing on alone. Never an endpoint that holds a
    // place or an acceptance, whatever a forged source claims; never an answer longer than what
    // came; never to a client already leaving.
    const QString notice = msg::Disconnected();
    if (verb == verb::DISCONNECT || text.size() < notice.size() || m_pending.contains(from)) return;
    if (!m_stale.Allow(from.Address, from.Port, now)) return;
    m_output.Send(notice, from);
    LogLimited(u"disconnect %1: \"%2\" from an endpoint without a place"_s.arg(from.ToString(), verb));
}

void Room::Tick()
{
    const qint64 now = m_clock();
    while (!m_pendingOrder.isEmpty()) {
        const auto oldest = m_pending.constFind(m_pendingOrder.first());
        if (now - oldest->sinceMs <= m_config.PendingMs) break;
        RemovePending(oldest.key());
    }
    QList<quint64> silent;
    for (const Player& player : std::as_const(m_players))
        if (now - player.LastHeardMs > m_config.SilenceMs) silent.append(player.Id);
    for (quint64 id : silent)
        if (m_players.contains(id)) RemovePlayer(id, Exit::Drop);
    if (m_roundRunning && m_config.RoundMs > 0 && now - m_roundStartMs >= m_config.RoundMs)
        EndRoundWithoutWinner(
            u"Time is up: nobody reached \"%1\" in %2."_s.arg(m_words.at(1), Duration(m_config.RoundMs)));
    if (now - m_lastSummaryMs >= kLogSummaryMs) {
        m_lastSummaryMs = now;
        m_guesses.removeIf([&](const QHash<QHostAddress, Guesses>::iterator& it) {
            return now - it->lastMs > kGuessesForgottenMs;
        });
        if (m_logSkipped > 0)
            Log(u"... and %1 more refusals not logged one by one"_s.arg(QLocale::c().toString(m_logSkipped)));
        m_logSkipped = 0;
    }
    FlushFanOut();
}

void Room::DisconnectAll()
{
    for (const Player& player : std::as_const(m_players))
        SendTo(player, msg::Disconnected());
    if (!m_players.isEmpty()) Log(u"shutdown: disconnected %1 players"_s.arg(m_players.size()));
    for (const Player& player : std::as_const(m_players))
        m_output.Seated(player.Where, false);
    m_players.clear();
    m_byEndpoint.clear();
    m_byName.clear();
    m_playersAt.clear();
    m_nameBytes = 0;
    m_pending.clear();
    m_pendingOrder.clear();
    m_pendingAt.clear();
    m_fanOut.clear();
    m_chooser = 0;
    m_pathFrom = 0;
    m_roundRunning = false;
    m_words.clear();
    m_referee.RaceOver({}, 0);
}

// --- handshake ----------------------------------------------------------------------------------

void Room::OnConnect(const Incoming& in)
{
    // The first form announces the port for replies; the password form has none, and a client
    // sends it from that port, so its replies go where it came from.
    Endpoint replyTo = in.from;
    const QString portText = GetParam(in.text, u"PORT");
    if (!portText.isEmpty()) {
        replyTo.Port = PortNumber(portText);
    } else if (in.text.contains(u"PORT=")) {
        throw Fault{"empty PORT"};
    }

    const QString name = GetParam(in.text, u"NAME");
    if (GetParam(in.text, u"VER") != ClientVersion) {
        m_output.Send(msg::ConnectRejectVersion(ClientVersion), replyTo);
        LogLimited(u"refuse \"%1\" from %2: version \"%3\""_s.arg(name, replyTo.ToString(),
                                                                  GetParam(in.text, u"VER")));
        return;
    }
    if (const QString why = NameProblem(name, m_config.MaxNameLength); !why.isEmpty())
        return Refuse(replyTo, name, u"-1", QString(u"unusable name: "_s + why));
    for (const auto& [subnet, prefix] : m_config.BannedSubnets)
        if (replyTo.Address.isInSubnet(subnet, prefix))
            return Refuse(replyTo, name, u"-21", u"address banned");
    if (IsReservedName(name) || m_bannedKeys.contains(NameKey(name)))
        return Refuse(replyTo, name, u"-11", u"name banned or reserved");
    if (const auto [code, why] = CannotSeat(name, replyTo); !code.isEmpty())
        return Refuse(replyTo, name, code, why);

    if (!m_config.Password.isEmpty()) {
        const QString password = GetParam(in.text, u"PWD");
        // Nothing is kept for the prompt: the answer comes from the same endpoint, whenever the
        // player has typed it.
        if (password.isEmpty()) {
            m_output.Send(msg::NeedPassword(), replyTo);
            return;
        }
        const qint64 now = m_clock();
        if (const qint64 wait = GuessWaitMs(replyTo.Address, now); wait > 0)
            return Refuse(replyTo, name, u"-1",
                          u"password guessed too often from this address; next check in %1 s"_s.arg(
                              (wait + 999) / 1000));
        if (!SameSecret(password, m_config.Password)) {
            WrongGuess(replyTo.Address, now);
            return Refuse(replyTo, name, u"-100", u"wrong password"_s);
        }
        m_guesses.remove(replyTo.Address);
    }
    AddPending(replyTo, name);
    m_output.Send(msg::ConnectAccept(m_roundRunning), replyTo);
}

std::pair<QStringView, QString> Room::CannotSeat(const QString& name, const Endpoint& where) const
{
    if (m_byEndpoint.contains(where)) return {u"-20", u"address and port already playing"_s};
    if (m_playersAt.value(where.Address) >= m_config.MaxPerAddress)
        return {u"-20", u"%1 players from this address already"_s.arg(m_config.MaxPerAddress)};
    if (m_byName.contains(NameKey(name))) return {u"-10", u"name in use, or one that reads the same"_s};
    if (m_players.size() >= m_config.MaxPlayers) return {u"-1", u"server full"_s};
    // Every player must learn the whole room from one datagram.
    if (PlayerListBytes(m_players.size() + 1, m_nameBytes + ToWire(name).size()) > kMaxPayload)
        return {u"-1", u"server full: the player list would not fit one datagram"_s};
    return {};
}

void Room::Refuse(const Endpoint& to, const QString& name, QStringView code, QStringView why)
{
    m_output.Send(msg::ConnectRejectError(code), to);
    LogLimited(u"refuse \"%1\" from %2: %3 (%4)"_s.arg(name, to.ToString(), why, code));
}

qint64 Room::GuessWaitMs(const QHostAddress& address, qint64 now) const
{
    const auto it = m_guesses.constFind(address);
    if (it == m_guesses.cend() || it->wrong < m_config.FreeGuesses) return 0;
    const int doublings = std::min(it->wrong - m_config.FreeGuesses, 30);
    const qint64 wait = std::min(m_config.MaxGuessWaitMs, m_config.GuessWaitMs << doublings);
    return std::max<qint64>(0, it->lastMs + wait - now);
}

void Room::WrongGuess(const QHostAddress& address, qint64 now)
{
    if (!m_guesses.contains(address) && m_guesses.size() >= kMaxGuessers) {
        // Full: of a few addresses (a hash table's first are as good as any), the one that guessed
        // least, and longest ago, is forgotten.
        auto least = m_guesses.begin();
        int looked = 0;
        for (auto it = m_guesses.begin(); it != m_guesses.end() && looked < 16; ++it, ++looked)
            if (it->wrong < least->wrong || (it->wrong == least->wrong && it->lastMs < least->lastMs))
                least = it;
        m_guesses.erase(least);
    }
    Guesses& guesses = m_guesses[address];
    ++guesses.wrong;
    guesses.lastMs = now;
}

void Room::AddPending(const Endpoint& where, const QString& name)
{
    RemovePending(where);
    // An address that holds its share of pending places gives up its oldest; the room gives up its
    // oldest when full. A place someone holds never stops anyone else from joining.
    if (m_pendingAt.value(where.Address) >= m_config.MaxPendingPerAddress) {
        for (auto it = m_pendingOrder.cbegin(); it != m_pendingOrder.cend(); ++it) {
            if (it->Address == where.Address) {
                RemovePending(*it);
                break;
            }
        }
    }
    if (m_pending.size() >= m_config.MaxPending && !m_pendingOrder.isEmpty())
        RemovePending(m_pendingOrder.first());
    const quint64 order = m_nextPending++;
    m_pending.insert(where, Pending{name, m_clock(), order});
    m_pendingOrder.insert(order, where);
    ++m_pendingAt[where.Address];
}

void Room::RemovePending(Endpoint where)
{
    const auto it = m_pending.find(where);
    if (it == m_pending.end()) return;
    m_pendingOrder.remove(it->order);
    m_pending.erase(it);
    if (--m_pendingAt[where.Address] <= 0) m_pendingAt.remove(where.Address);
}

void Room::OnGetPlayerList(const Incoming& in)
{
    Endpoint where = in.from;
    const QString portText = GetParam(in.text, u"PORT");
    if (!portText.isEmpty()) where.Port = PortNumber(portText);
    const auto it = m_pending.constFind(where);
    if (it == m_pending.cend()) return;
    const QString name = it->name;
    RemovePending(where);
    // Places are taken in the order the players ask for the list: whoever was accepted meanwhile
    // under the same name, or filled the room, came first.
    if (const auto [code, why] = CannotSeat(name, where); !code.isEmpty())
        return Refuse(where, name, code, why);
    AddPlayer(name, where);
}

void Room::AddPlayer(const QString& name, const Endpoint& where)
{
    Player player;
    player.Id = m_nextId++;
    player.Name = name;
    player.Where = where;
    player.LastHeardMs = m_clock();
    player.ChatLines = m_config.ChatLineBurst;
    player.ChatBytes = m_config.ChatByteBurst;
    player.ChatMs = player.LastHeardMs;
    // A player arriving during a round is out of it until asking for its words.
    player.InGame = !m_roundRunning;
    m_players.insert(player.Id, player);
    m_byEndpoint.insert(where, player.Id);
    m_byName.insert(NameKey(name), player.Id);
    ++m_playersAt[where.Address];
    m_nameBytes += ToWire(name).size();
    m_output.Seated(where, true);
    const Player& added = m_players[player.Id];

    if (m_players.size() == 1) {
        m_chooser = added.Id;
        SendTo(added, msg::IsHost(name));
    }
    const QString welcome = ExpandWelcome(m_config.Welcome, int(m_players.size()));
    if (!welcome.isEmpty()) SendTo(added, msg::Message(welcome));
    QStringList names;
    names.reserve(m_players.size());
    for (const Player& p : std::as_const(m_players))
        names.append(p.Name);
    SendTo(added, msg::PlayerList(names));
    Broadcast(msg::Join(name), added.Id);
    Log(u"join \"%1\" from %2 (%3 players)"_s.arg(name, where.ToString()).arg(m_players.size()));
}

// --- leaving ------------------------------------------------------------------------------------

void Room::OnDisconnect(const Incoming& in)
{
    if (FromNamed(in)) RemovePlayer(in.player->Id, Exit::Leave);
}

void Room::RemovePlayer(quint64 id, Exit how)
{
    const auto it = m_players.find(id);
    if (it == m_players.end()) return;
    const QString name = it->Name;
    const Endpoint where = it->Where;
    m_byEndpoint.remove(where);
    m_byName.remove(NameKey(name));
    if (--m_playersAt[where.Address] <= 0) m_playersAt.remove(where.Address);
    m_nameBytes -= ToWire(name).size();
    m_players.erase(it);
    m_output.Seated(where, false);
    Broadcast(how == Exit::Leave ? msg::Leave(name) : msg::Drop(name));
    Log(u"%1 \"%2\" (%3 players)"_s.arg(how == Exit::Leave ? u"leave"_s : u"drop"_s, name)
            .arg(m_players.size()));

    m_referee.Leave(id);
    if (m_pathFrom == id) m_pathFrom = 0;
    if (m_players.isEmpty()) {
        m_chooser = 0;
        if (m_roundRunning) m_referee.RaceOver({}, 0);
        m_roundRunning = false;
        m_words.clear();
        m_fanOut.clear();
        return;
    }
    const bool chooserLeft = m_chooser == id;
    // The longest-present player takes over choosing. During a round that stays silent: the round
    // goes on, and its winner chooses anyway.
    if (chooserLeft) m_chooser = m_players.firstKey();
    if (m_roundRunning && !AnyoneRacing()) {
        EndRoundWithoutWinner();
    } else if (chooserLeft && !m_roundRunning) {
        Broadcast(msg::NewGame(ChooserPlayer()->Name));
        Log(u"chooser \"%1\" (the previous chooser left)"_s.arg(ChooserPlayer()->Name));
    }
    // An arrival that waited for the one who left may win now.
    if (m_roundRunning) m_referee.Settle();
}

// --- the session --------------------------------------------------------------------------------

bool Room::FromNamed(const Incoming& in)
{
    return in.player && GetParam(in.text, u"NAME") == in.player->Name;
}

void Room::OnGetScore(const Incoming& in)
{
    const Player* about = FindPlayer(GetParam(in.text, u"NAME"));
    if (about) SendTo(*in.player, ScoreOf(*about));
}

void Room::OnPingMe(const Incoming& in)
{
    // The body is the client's port; the reply goes to the player's known endpoint all the same.
    if (in.text.size() <= verb::PINGME.size() + 1) throw Fault{"no port"};
    PortNumber(QStringView(in.text).sliced(verb::PINGME.size() + 1));
    SendTo(*in.player, msg::Ping(QString::number(m_clock())));
}

void Room::OnPong(const Incoming& in)
{
    if (!FromNamed(in)) return;
    bool ok = false;
    const qint64 sent = GetParam(in.text, u"TIME").toLongLong(&ok);
    if (!ok) throw Fault{"TIME is no stamp"};
    const qint64 roundTrip = m_clock() - sent;
    if (roundTrip < 0 || roundTrip > kMaxPingMs) return; // not a stamp of ours
    in.player->Ping = qint32(roundTrip);
    PingChanged(*in.player);
}

void Room::OnChat(const Incoming& in)
{
    if (!in.text.contains(u"TEXT=")) return;
    Player& speaker = *in.player;
    const QString name = GetParam(in.text, u"NAME");
    const QString text = ChatText(in.text);
    if (name == speaker.Name) {
        if (ChatForgesLines(text))
            return ChatNote(speaker,
                            u"Your line was not sent: it holds line breaks or control characters."_s);
        const QString line = msg::Chat(speaker.Name, text);
        const double bytes = double(ToWire(line).size());
        const qint64 now = m_clock();
        const double seconds = double(std::max<qint64>(0, now - speaker.ChatMs)) / 1000;
        speaker.ChatMs = std::max(speaker.ChatMs, now);
        speaker.ChatLines =
            std::min(m_config.ChatLineBurst, speaker.ChatLines + seconds * m_config.ChatLineRate);
        speaker.ChatBytes =
            std::min(m_config.ChatByteBurst, speaker.ChatBytes + seconds * m_config.ChatByteRate);
        if (speaker.ChatLines < 1 || speaker.ChatBytes < bytes)
            return ChatNote(
                speaker, u"You are sending chat faster than the server relays it; that line was not sent."_s);
        // Chat waits for the room's budget, which the scores share: a line the budget cannot
        // carry to everyone now is not sent at all.
        RefillBudget();
        const double others = double(m_players.size() - 1);
        if (!BudgetAllows(others, others * bytes))
            return ChatNote(speaker, u"The server is busy; that line was not sent. Try again in a moment."_s);
        speaker.ChatLines -= 1;
        speaker.ChatBytes -= bytes;
        Broadcast(line);
        return;
    }
    // The one game notice a player may send: its own disqualification, once. The page it names is
    // the one the client showed at that moment, which may already be a later forbidden page.
    if (name != msg::GameSpeaker || speaker.NoticeFor.isEmpty()) return;
    QString notice;
    for (QStringView page : ForbiddenWords()) {
        const QString candidate = msg::DisqualifiedNotice(speaker.Name, page);
        if (ChatText(candidate) == text) notice = candidate;
    }
    if (const QString own = msg::DisqualifiedNotice(speaker.Name, speaker.NoticeFor); ChatText(own) == text)
        notice = own;
    if (notice.isEmpty()) return;
    speaker.NoticeFor.clear();
    Broadcast(notice);
}

void Room::ChatNote(Player& player, const QString& why)
{
    const qint64 now = m_clock();
    if (player.ChatNoteMs >= 0 && now - player.ChatNoteMs < 1000) return;
    player.ChatNoteMs = now;
    SendTo(player, msg::Chat(msg::GameSpeaker, why));
    LogLimited(u"chat from \"%1\" not relayed: %2"_s.arg(player.Name, why));
}

void Room::OnTime(const Incoming& in)
{
    const QDateTime now = QDateTime::currentDateTime();
    const QLocale c = QLocale::c();
    SendTo(*in.player,
           msg::TimeIs(c.toString(now.time(), u"hh:mm:ss"), c.toString(now.date(), u"dddd, MMMM d, yyyy")));
}

void Room::OnGetRandom(const Incoming& in)
{
    // Only the chooser, between rounds, has a use for random words; the others get nothing.
    if (in.player->Id != m_chooser || m_roundRunning) return;
    const qint32 source = Number(GetParam(in.text, u"SRC"));
    if (source != 1 && source != 2) return;
    std::uniform_int_distribution<qsizetype> pick(0, m_config.Articles.size() - 1);
    SendTo(*in.player, msg::SetRandom(m_config.Articles[pick(m_random)], source));
}

void Room::OnStatus(const Incoming& in)
{
    const Endpoint replyTo{in.from.Address, PortNumber(GetParam(in.text, u"PORT"))};
    m_output.Send(msg::StatusReply(GetParam(in.text, u"SERVER"), QString::number(m_players.size())), replyTo);
}

// --- rounds -------------------------------------------------------------------------------------

void Room::OnSetWords(const Incoming& in)
{
    Player& chooser = *in.player;
    if (chooser.Id != m_chooser || m_roundRunning) return;
    if (Number(GetParam(in.text, u"COUNT")) != 1) return;
    const QString initial = GetParam(in.text, u"WORD0").trimmed();
    const QString destination = GetParam(in.text, u"WORD1").trimmed();

    // A word no page could have as its title, which nobody could ever report, and why.
    std::pair<QString, QString> untitled;
    for (const QString& word : {initial, destination})
        if (const QString problem = TitleProblem(word); !problem.isEmpty() && untitled.first.isEmpty())
            untitled = {word, problem};
    QString why;
    if (initial.isEmpty() || destination.isEmpty()) {
        why = u"Both an initial and a destination article are needed."_s;
    } else if (ArticleKey(initial) == ArticleKey(destination)) {
        why = u"The initial and the destination article must differ."_s;
    } else if (initial.size() > kMaxWordLength || destination.size() > kMaxWordLength) {
        why = u"Article titles are at most %1 characters long."_s.arg(kMaxWordLength);
    } else if (const QString problem = WordProblem(QString(initial + destination)); !problem.isEmpty()) {
        why = u"Article titles cannot hold control or invisible characters, nor spaces other than the "
              u"ordinary one."_s;
    } else if (!untitled.second.isEmpty()) {
        why = u"\"%1\" cannot be a page's title: no page can have %2."_s.arg(ShownTitle(untitled.first),
                                                                              untitled.second);
    } else if (IsForbiddenTitle(initial) || IsForbiddenTitle(destination) ||
               IsForbiddenWord(ArticleWord(initial)) || IsForbiddenWord(ArticleWord(destination))) {
        const bool first = IsForbiddenTitle(initial) || IsForbiddenWord(ArticleWord(initial));
        why = u"\"%1\" is a page no round may visit."_s.arg(first ? initial : destination);
    } else if (initial.contains(u'=') || destination.contains(u'=')) {
        // A word holding "=" could hold another word's key, and the players would read other words.
        why = u"Titles with \"=\" cannot be sent to the players."_s;
    }
    if (!why.isEmpty()) {
        SendTo(chooser, msg::Chat(msg::GameSpeaker, why));
        SendTo(chooser, msg::NewGame(chooser.Name));
        Log(u"words refused from \"%1\": %2"_s.arg(chooser.Name, why));
        return;
    }
    StartRound(initial, destination);
}

void Room::StartRound(const QString& initial, const QString& destination)
{
    m_roundRunning = true;
    m_words = {initial, destination};
    m_pathFrom = 0;
    m_roundStartMs = m_clock();
    QList<quint64> racers;
    for (Player& player : m_players) {
        player.RoundClicks = 0;
        player.InGame = true;
        player.Entered = true;
        player.Racing = true;
        player.NoticeFor.clear();
        racers.append(player.Id);
    }
    Broadcast(msg::StartGame(m_words));
    Log(u"round start \"%1\" -> \"%2\", chosen by \"%3\", %4 players"_s
            .arg(initial, destination, ChooserPlayer()->Name)
            .arg(m_players.size()));
    m_referee.StartRace(initial, destination, racers);
}

void Room::OnGetWords(const Incoming& in)
{
    // A player that arrived during the round joins it, once.
    Player& player = *in.player;
    if (!FromNamed(in) || !m_roundRunning || player.Entered) return;
    player.Entered = true;
    player.Racing = true;
    player.InGame = true;
    player.RoundClicks = 0;
    m_referee.Enter(player.Id);
    SendTo(player, msg::StartGame(m_words));
    ScoreChanged(player);
}

void Room::OnNavigate(const Incoming& in)
{
    Player& player = *in.player;
    if (!FromNamed(in) || !m_roundRunning || !player.Racing) return;
    const QString page = GetParam(in.text, u"URL");
    if (page.isEmpty()) return;
    const Referee::Call call = m_referee.Navigate(player.Id, page);
    if (call == Referee::Call::Ignored || call == Referee::Call::Out) return;
    Increment(player.Clicks);
    Increment(player.RoundClicks);
    // Taken on trust, the win is at once, and its score goes out with "WINNER".
    if (call == Referee::Call::Arrived && !m_referee.Vouches()) return m_referee.Settle();
    ScoreChanged(player);
    if (call == Referee::Call::Arrived) m_referee.Settle();
}

void Room::Disqualified(quint64 racer, const QString& notice, const QString& why)
{
    const auto it = m_players.find(racer);
    if (it == m_players.end()) return;
    // The client's own notice would name the page it shows; the game tells the step instead.
    if (!why.isEmpty()) Broadcast(msg::Chat(msg::GameSpeaker, u"%1 is out of the round: %2."_s.arg(it->Name, why)));
    PutOut(*it, notice, why.isEmpty() ? notice : why);
}

void Room::Won(quint64 racer, const QString& unchecked)
{
    const auto it = m_players.find(racer);
    if (it == m_players.end()) return;
    if (!unchecked.isEmpty()) Log(u"route of \"%1\" not checked: %2"_s.arg(it->Name, unchecked));
    Win(*it);
}

void Room::RaceEnded(const QString& why)
{
    if (m_roundRunning) EndRoundWithoutWinner(why);
}

void Room::Tell(const QString& line)
{
    Broadcast(msg::Chat(msg::GameSpeaker, line));
}

void Room::PutOut(Player& player, const QString& notice, const QString& why)
{
    player.Racing = false;
    player.InGame = false;
    player.NoticeFor = notice;
    player.ScoreDirty = false;
    SendTo(player, msg::Disqualify());
    Broadcast(ScoreOf(player));
    Log(u"disqualify \"%1\" for %2"_s.arg(player.Name, why));
    if (!AnyoneRacing()) EndRoundWithoutWinner();
}

void Room::Win(Player& player)
{
    Increment(player.Wins);
    player.ScoreDirty = false;
    const QString score = ScoreOf(player);
    // The last score first: each client shows the winner's clicks from it. Each client then adds
    // the win to its own board on "WINNER", so the same score once more puts every board right.
    Broadcast(score);
    Broadcast(msg::Winner(player.Name));
    Broadcast(score);
    Log(u"winner \"%1\" in %2 clicks"_s.arg(player.Name).arg(player.RoundClicks));
    m_roundRunning = false;
    for (Player& p : m_players)
        p.Entered = p.Racing = false;
    m_referee.RaceOver(player.Name, player.RoundClicks);
    m_chooser = player.Id;
    m_pathFrom = player.Id;
}

void Room::OnSendMyPath(const Incoming& in)
{
    if (!FromNamed(in) || in.player->Id != m_pathFrom) return;
    if (!in.text.contains(u"PATH=")) return;
    m_pathFrom = 0;
    Broadcast(msg::PathIs(GetParam(in.text, u"PATH"), ChooserPlayer()->Name));
    m_referee.TellShortestRoute();
}

void Room::EndRoundWithoutWinner(const QString& why)
{
    // Nobody reached the destination: whoever chose these words chooses again.
    if (!why.isEmpty()) Broadcast(msg::Chat(msg::GameSpeaker, why));
    m_roundRunning = false;
    for (Player& p : m_players)
        p.Entered = p.Racing = false;
    m_referee.RaceOver({}, 0);
    Player* chooser = ChooserPlayer();
    Broadcast(msg::NewGame(chooser->Name));
    Log(u"round over without a winner%1; \"%2\" chooses again"_s.arg(
        why.isEmpty() ? QString() : u" ("_s + why + u')', chooser->Name));
    m_referee.TellShortestRoute();
}

bool Room::AnyoneRacing() const
{
    return std::any_of(m_players.cbegin(), m_players.cend(), [](const Player& p) { return p.Racing; });
}

Player* Room::ChooserPlayer()
{
    const auto it = m_players.find(m_chooser);
    return it == m_players.end() ? nullptr : &*it;
}

QString Room::Chooser() const
{
    const auto it = m_players.constFind(m_chooser);
    return it == m_players.cend() ? QString() : it->Name;
}

const Player* Room::FindPlayer(QStringView name) const
{
    const auto it = m_byName.constFind(NameKey(name));
    return it == m_byName.cend() ? nullptr : &*m_players.constFind(*it);
}

void Room::LogLimited(const QString& line)
{
    const qint64 now = m_clock();
    m_logTokens =
        std::min(kLogBurst, m_logTokens + double(std::max<qint64>(0, now - m_logMs)) * kLogRate / 1000);
    m_logMs = std::max(m_logMs, now);
    if (m_logTokens < 1) {
        ++m_logSkipped;
        return;
    }
    m_logTokens -= 1;
    Log(line);
}

// --- sending ------------------------------------------------------------------------------------

QString Room::ScoreOf(const Player& p) const
{
    return msg::ScoreIs(p.Name, p.Wins, p.Clicks, p.RoundClicks, p.InGame);
}

void Room::SendTo(const Player& player, const QString& text)
{
    m_output.Send(text, player.Where);
}

void Room::Broadcast(const QString& text, quint64 except)
{
    RefillBudget();
    const double bytes = double(ToWire(text).size());
    for (const Player& player : std::as_const(m_players)) {
        if (player.Id == except) continue;
        m_output.Send(text, player.Where);
        m_budget -= 1;
        m_byteBudget -= bytes;
    }
}

void Room::RefillBudget()
{
    const qint64 now = m_clock();
    // Room for a score and a ping to everyone, or a tenth of a second's worth, whichever is more;
    // in bytes, room for the longest chat line to everyone.
    const double capacity = std::max(m_config.FanOutRate / 10, 2.0 * double(m_players.size()));
    const double byteCapacity =
        std::max(m_config.FanOutByteRate / 10, double(m_players.size()) * m_config.MaxDatagram);
    // What went out beyond the budget delays the merged updates, by a tenth of a second's worth at
    // most: a burst of joins must not hold back the scores for long.
    const double seconds = double(std::max<qint64>(0, now - m_budgetMs)) / 1000;
    m_budget = std::min(capacity, std::max(m_budget, -capacity) + seconds * m_config.FanOutRate);
    m_byteBudget =
        std::min(byteCapacity, std::max(m_byteBudget, -byteCapacity) + seconds * m_config.FanOutByteRate);
    m_budgetMs = std::max(m_budgetMs, now);
}

bool Room::BudgetAllows(double datagrams, double bytes) const
{
    return m_budget >= datagrams && m_byteBudget >= bytes;
}

void Room::ScoreChanged(Player& player)
{
    // The player hears first: its own report is the one it waits for.
    const QString score = ScoreOf(player);
    SendTo(player, score);
    RefillBudget();
    const double others = double(m_players.size() - 1);
    if (m_fanOut.empty() && BudgetAllows(others, others * double(score.size()))) {
        player.ScoreDirty = false;
        Broadcast(score, player.Id);
        return;
    }
    if (!player.ScoreDirty && !player.PingDirty) m_fanOut.push_back(player.Id);
    player.ScoreDirty = true;
}

void Room::PingChanged(Player& player)
{
    const QString ping = msg::PingIs(player.Name, player.Ping);
    SendTo(player, ping);
    RefillBudget();
    const double others = double(m_players.size() - 1);
    if (m_fanOut.empty() && BudgetAllows(others, others * double(ping.size()))) {
        player.PingDirty = false;
        Broadcast(ping, player.Id);
        return;
    }
    if (!player.ScoreDirty && !player.PingDirty) m_fanOut.push_back(player.Id);
    player.PingDirty = true;
}

void Room::FlushFanOut()
{
    RefillBudget();
    while (!m_fanOut.empty()) {
        const auto it = m_players.find(m_fanOut.front());
        if (it == m_players.end() || (!it->ScoreDirty && !it->PingDirty)) {
            m_fanOut.pop_front();
            continue;
        }
        const double cost = double(m_players.size() - 1) * (int(it->ScoreDirty) + int(it->PingDirty));
        // A score or a ping is under a hundred bytes, and the name in it at most a few hundred.
        if (!BudgetAllows(cost, cost * double(100 + 4 * it->Name.size()))) return;
        m_fanOut.pop_front();
        // The player itself was told at once; the merged update goes to the others.
        if (it->ScoreDirty) Broadcast(ScoreOf(*it), it->Id);
        if (it->PingDirty) Broadcast(msg::PingIs(it->Name, it->Ping), it->Id);
        it->ScoreDirty = it->PingDirty = false;
    }
}

// --- checks -------------------------------------------------------------------------------------

QString Room::CheckInvariants() const
{
    QSet<QString> names;
    QHash<QHostAddress, int> at;
    QStringList list;
    qsizetype nameBytes = 0;
    for (const Player& p : m_players) {
        const QString key = NameKey(p.Name);
        if (names.contains(key)) return u"two players whose names read \"%1\""_s.arg(key);
        names.insert(key);
        if (m_byName.value(key) != p.Id) return u"name index lost \"%1\""_s.arg(p.Name);
        if (!NameProblem(p.Name, m_config.MaxNameLength).isEmpty() || IsReservedName(p.Name))
            return u"unusable name \"%1\" in the room"_s.arg(p.Name);
        ++at[p.Where.Address];
        list.append(p.Name);
        nameBytes += ToWire(p.Name).size();
        if (m_byEndpoint.value(p.Where) != p.Id) return u"endpoint index lost \"%1\""_s.arg(p.Name);
        if (p.Wins < 0 || p.Clicks < 0 || p.RoundClicks < 0 || p.Ping < 0)
            return u"negative score for \"%1\""_s.arg(p.Name);
        if (p.Racing && (!p.Entered || !m_roundRunning))
            return u"\"%1\" racing outside a round"_s.arg(p.Name);
        if (p.Racing != m_referee.Racing(p.Id)) return u"\"%1\" racing for one of room and referee"_s.arg(p.Name);
        if (m_pending.contains(p.Where)) return u"\"%1\" both playing and pending"_s.arg(p.Name);
    }
    if (m_byName.size() != m_players.size() || m_byEndpoint.size() != m_players.size())
        return u"index sizes"_s;
    if (at != m_playersAt) return u"players per address miscounted"_s;
    for (int count : std::as_const(at))
        if (count > m_config.MaxPerAddress) return u"too many players from one address"_s;
    if (nameBytes != m_nameBytes) return u"name bytes miscounted"_s;
    const qsizetype listBytes = ToWire(msg::PlayerList(list)).size();
    if (listBytes > kMaxPayload) return u"the player list outgrew a datagram"_s;
    if (listBytes != PlayerListBytes(list.size(), nameBytes)) return u"player list size miscounted"_s;
    QHash<QHostAddress, int> pendingAt;
    for (auto it = m_pending.cbegin(); it != m_pending.cend(); ++it) {
        ++pendingAt[it.key().Address];
        if (m_pendingOrder.value(it->order) != it.key()) return u"pending order lost"_s;
    }
    if (pendingAt != m_pendingAt || m_pendingOrder.size() != m_pending.size()) return u"pending miscounted"_s;
    if (m_pending.size() > m_config.MaxPending) return u"too many pending"_s;
    for (int count : std::as_const(pendingAt))
        if (count > m_config.MaxPendingPerAddress) return u"too many pending from one address"_s;
    if (m_guesses.size() > kMaxGuessers) return u"too many password guessers remembered"_s;
    if (m_players.isEmpty() != (m_chooser == 0))
        return u"chooser without players or players without chooser"_s;
    if (m_chooser != 0 && !m_players.contains(m_chooser)) return u"chooser is no player"_s;
    if (m_pathFrom != 0 && !m_players.contains(m_pathFrom)) return u"route awaited from no player"_s;
    if (m_roundRunning && m_words.size() != 2) return u"round without words"_s;
    if (m_players.isEmpty() && m_roundRunning) return u"round in an empty room"_s;
    if (const QString referee = m_referee.CheckInvariants(); !referee.isEmpty()) return u"referee: "_s + referee;
    return {};
}

} // namespace linkhop::server
