#include "options.h"

#include "wire.h"

#include <QDir>
#include <QFile>
#include <QSaveFile>

using namespace Qt::Literals::StringLiterals;

namespace linkhop {

QString Options::FileName(const QString& key) const { return QDir(m_folder).filePath(key + u".dat"_s); }

void Options::SaveOption(const QString& key, const QString& value) const
{
    // Written to a temporary file and renamed over the old one, so a failed save keeps the old value.
    QSaveFile file(FileName(key));
    if (!file.open(QIODevice::WriteOnly)) return;
    file.write(ToWire(value));
    file.write("\r\n");
    file.commit();
}

QString Options::LoadOption(const QString& key) const
{
    QFile file(FileName(key));
    if (!file.open(QIODevice::ReadOnly)) return {};
    const QByteArray content = file.read(1 << 20);
    file.close();
    if (content.isEmpty()) return {};
    qsizetype end = 0;
    while (end < content.size() && content[end] != '\r' && content[end] != '\n') ++end;
    if (end == 0) {
        // A file whose first line is empty is left empty.
        if (file.open(QIODevice::WriteOnly | QIODevice::Truncate)) file.close();
        return {};
    }
    return FromWire(QByteArrayView(content).first(end));
}

QStringList SplitServerList(const QString& text) { return text.split(u',', Qt::SkipEmptyParts); }

QString JoinServerList(const QString& joined, const QStringList& listed)
{
    QStringList list{joined};
    const QString lower = joined.toLower();
    for (const QString& address : listed)
        if (address.toLower() != lower) list.append(address);
    return list.join(u',');
}

} // namespace linkhop
