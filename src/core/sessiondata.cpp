#include "sessiondata.h"

#include "fault.h"
#include "wire.h"

#include <limits>

namespace linkhop {

QString WordList::at(qint64 index) const
{
    if (index < 0 || index >= m_size || index > std::numeric_limits<qint32>::max()) return {};
    return m_words.value(qint32(index));
}

WordList WordList::FromStartGame(QStringView startGame)
{
    const qint32 count = Number(GetParam(startGame, u"COUNT"));
    if (count < 0) throw Fault{"negative word count"};
    QMap<qint32, QString> words = IndexedParams(startGame, u"WORD");
    words.removeIf([count](auto it) { return it.key() > count; });
    return WordList(qint64(count) + 1, std::move(words));
}

PlayerRecord& SessionData::Player(qint32 index)
{
    if (index < 1 || index > PlayerCount()) throw Fault{"no such player"};
    return m_players[index - 1];
}

const PlayerRecord& SessionData::Player(qint32 index) const
{
    if (index < 1 || index > PlayerCount()) throw Fault{"no such player"};
    return m_players[index - 1];
}

qint32 SessionData::IndexIgnoringCase(const QString& name) const
{
    const QString wanted = name.toLower();
    for (qsizetype i = 0; i < m_players.size(); ++i)
        if (m_players[i].Name.toLower() == wanted) return qint32(i + 1);
    return 0;
}

void SessionData::AddPlayer(const QString& name)
{
    const QString lower = name.toLower();
    if (m_lowerNames.contains(lower)) return;
    // The player's own name was typed here and accepted by the server: it always has its place.
    // The bounds are for everyone else, who leave one place free for it.
    const QString own = PlayerName.toLower();
    if (PlayerName.isEmpty() || lower != own) {
        const qint32 others = PlayerCount() - qint32(!PlayerName.isEmpty() && m_lowerNames.contains(own));
        if (name.size() > kMaxNameLength || others >= kMaxPlayers - 1) return;
    }
    m_lowerNames.insert(lower);
    PlayerRecord record;
    record.Name = name;
    m_players.append(record);
}

void SessionData::RemovePlayer(const QString& name)
{
    if (const qint32 i = IndexIgnoringCase(name)) {
        m_lowerNames.remove(m_players[i - 1].Name.toLower());
        m_players.removeAt(i - 1);
    }
}

qint32 SessionData::FindPlayer(const QString& name) const
{
    for (qsizetype i = 0; i < m_players.size(); ++i)
        if (m_players[i].Name == name) return qint32(i + 1);
    return 0;
}

void SessionData::AddPlayersFrom(QStringView playerList)
{
    const qint32 count = Number(GetParam(playerList, u"COUNT"));
    // Same outcome as AddPlayer(GetParam("P" + i)) for i = 1 to COUNT, without walking the gaps:
    // every gap adds the empty name, which AddPlayer keeps only once.
    qint64 expected = 1;
    const QMap<qint32, QString> names = IndexedParams(playerList, u"P");
    for (auto it = names.cbegin(); it != names.cend() && it.key() <= count; ++it) {
        if (it.key() < 1) continue;
        if (it.key() > expected) AddPlayer(QString());
        AddPlayer(it.value());
        expected = qint64(it.key()) + 1;
    }
    if (expected <= count) AddPlayer(QString());
}

void SessionData::ResetGameData()
{
    Words = WordList::OneEmpty();
    TargetWordIndex = 0;
    InRound = false;
    ChooserName.clear();
}

} // namespace linkhop
