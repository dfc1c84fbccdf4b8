#pragma once

#include <QString>
#include <QStringList>

namespace linkhop {

// Named single-line settings, each the file <key>.dat in the program's folder. Reads and writes
// hide every failure: a missing or unreadable option reads as empty text.
class Options
{
public:
    explicit Options(QString folder) : m_folder(std::move(folder)) {}

    const QString& Folder() const { return m_folder; }
    QString FileName(const QString& key) const;

    void SaveOption(const QString& key, const QString& value) const;
    QString LoadOption(const QString& key) const;

private:
    QString m_folder;
};

// The "Servers" list: addresses joined by ",". Reading skips empty items.
QStringList SplitServerList(const QString& text);
// The list written after joining `joined`: it first, then the others that differ ignoring case.
QString JoinServerList(const QString& joined, const QStringList& listed);

} // namespace linkhop
