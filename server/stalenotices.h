#pragma once

#include <QHostAddress>
#include <QtGlobal>
#include <vector>

namespace linkhop::server {

// Who may be told "DISCONNECT" for speaking as a player from where nobody plays: a client of the
// room before the server restarted, or dropped it. Each endpoint at most once in `everyMs`, and all
// endpoints together `perSecond`. A table of fixed size remembers when it told each slot's
// endpoints: one whose slot another took lately is not told either, so that fresh endpoints sprayed
// at the server grow no memory and get no endpoint told more often.
class StaleNotices final
{
    Q_DISABLE_COPY_MOVE(StaleNotices)

public:
    static constexpr size_t kSlots = 4096;

    StaleNotices(qint64 everyMs, double perSecond);
    // Whether the endpoint may be told now; spends the notice when it may.
    bool Allow(const QHostAddress& address, quint16 port, qint64 nowMs);

private:
    qint64 m_everyMs;
    double m_perSecond;
    double m_tokens;
    qint64 m_refilledMs = 0;
    quint64 m_seed;
    std::vector<qint64> m_toldMs; // by slot: when an endpoint of that slot was last told
};

} // namespace linkhop::server
