#include "serverconfig.h"

#include "core/options.h"
#include "core/pagerules.h"
#include "core/version.h"
#include "core/wire.h"

#include <QDir>
#include <QFile>

using namespace Qt::Literals::StringLiterals;

namespace linkhop::server {

namespace {

void Warn(QStringList* warnings, const QString& text)
{
    if (warnings) warnings->append(text);
}

} // namespace

bool IsForbiddenTitle(QStringView title)
{
    return !PageCategory(title).isEmpty();
}

QStringList FallbackArticles()
{
    return u"Albert Einstein|Apple|Banana|Chess|Earth|Egypt|Elephant|France|Gold|Isaac Newton|Jupiter|"
           u"Leonardo da Vinci|Moon|Mount Everest|Oxygen|Paris|Photosynthesis|Piano|Roman Empire|Telephone|"
           u"Tiger|Tokyo|Volcano|William Shakespeare"_s.split(u'|');
}

QStringList LoadArticles(const QString& fileName, QStringList* warnings)
{
    QFile file(fileName);
    if (!file.open(QIODevice::ReadOnly)) {
        Warn(warnings, u"Article list %1 not found; using a small built-in list."_s.arg(fileName));
        return FallbackArticles();
    }
    QStringList articles;
    int skipped = 0;
    while (!file.atEnd()) {
        const QString title = QString::fromUtf8(file.readLine()).trimmed();
        if (title.isEmpty()) continue;
        // A title holding ";" or "=" would break the message that carries it, and one the wire's
        // code page cannot carry would reach the players garbled.
        if (title.contains(u';') || title.contains(u'=') || IsForbiddenTitle(title) ||
            FromWire(ToWire(title)) != title) {
            ++skipped;
            continue;
        }
        articles.append(title);
    }
    if (skipped > 0) Warn(warnings, u"%1 unusable titles in %2 were left out."_s.arg(skipped).arg(fileName));
    if (articles.isEmpty()) {
        Warn(warnings, u"Article list %1 is empty; using a small built-in list."_s.arg(fileName));
        return FallbackArticles();
    }
    return articles;
}

QList<QPair<QHostAddress, int>> ParseBannedAddresses(const QStringList& entries, QStringList* warnings)
{
    QList<QPair<QHostAddress, int>> subnets;
    for (const QString& raw : entries) {
        const QString entry = raw.trimmed();
        if (entry.isEmpty()) continue;
        QPair<QHostAddress, int> subnet;
        if (entry.contains(u'/')) {
            subnet = QHostAddress::parseSubnet(entry);
        } else if (QHostAddress address; address.setAddress(entry)) {
            subnet = {address, address.protocol() == QAbstractSocket::IPv4Protocol ? 32 : 128};
        }
        if (subnet.first.isNull()) {
            Warn(warnings, u"BannedIPs: \"%1\" is no address; ignored."_s.arg(entry));
            continue;
        }
        subnets.append(subnet);
    }
    return subnets;
}

QString ExpandWelcome(QStringView text, int players)
{
    QString out;
    out.reserve(text.size());
    for (qsizetype i = 0; i < text.size(); ++i) {
        if (text[i] == u'%' && i + 1 < text.size()) {
            if (text[i + 1] == u'p') {
                out += QString::number(players);
                ++i;
                continue;
            }
            if (text[i + 1] == u'v') {
                out += ClientVersion;
                ++i;
                continue;
            }
        }
        out += text[i];
    }
    return out;
}

ServerConfig LoadServerConfig(const QString& folder, QStringList* warnings)
{
    const Options options(folder);
    ServerConfig config;
    config.Welcome = options.LoadOption(u"Welcome"_s);
    // The host dialog stores the password cleaned, as the client cleans what it sends.
    config.Password = CleanField(options.LoadOption(u"Password"_s));
    for (const QString& name : SplitServerList(options.LoadOption(u"BannedNames"_s)))
        if (!name.trimmed().isEmpty()) config.BannedNames.append(name.trimmed());
    config.BannedSubnets =
        ParseBannedAddresses(SplitServerList(options.LoadOption(u"BannedIPs"_s)), warnings);
    config.Articles = LoadArticles(QDir(folder).filePath(u"articles.txt"_s), warnings);
    if (const QString minutes = options.LoadOption(u"RoundMinutes"_s).trimmed(); !minutes.isEmpty()) {
        bool ok = false;
        const int value = minutes.toInt(&ok);
        if (ok && value >= 0 && value <= 24 * 60)
            config.RoundMs = qint64(value) * 60000;
        else
            Warn(
                warnings,
                u"RoundMinutes: \"%1\" is no number of minutes from 0 to 1440; a round lasts at most %2 minutes."_s
                    .arg(minutes)
                    .arg(config.RoundMs / 60000));
    }
    if (const QString contact = options.LoadOption(u"Contact"_s).trimmed(); !contact.isEmpty())
        config.Contact = contact;
    return config;
}

} // namespace linkhop::server
