#pragma once

#include "scriptedserver.h" // TestAddress, WaitUntil

#include <memory>

namespace linkhop::test {

// A web site on the test address that is not the encyclopedia, for what the real engine does not
// serve: another language's encyclopedia (/wiki/<title> is a page titled "<title> - Wikipedia"), a
// page that answers No Content (/204), one that never answers (/stall), and one whose title comes
// late, by script, with a link to /stall (/late-title), and a web page where an encyclopedia has its
// API (/w/api.php). Served from a thread of its own.
class OtherSite final
{
public:
    OtherSite();
    ~OtherSite();
    Q_DISABLE_COPY_MOVE(OtherSite)

    bool Listen(); // on a free port
    QString Host() const { return m_host; }
    QString Url(QStringView pathAndQuery) const;

    static constexpr int kLateTitleMs = 500;

private:
    class Server;
    std::unique_ptr<Server> m_server;
    QString m_host;
};

} // namespace linkhop::test
