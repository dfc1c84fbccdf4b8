#pragma once

#include <QLine>
#include <QWidget>
#include <optional>

class QLabel;

namespace linkhop {

class Session;

// The scoreboard: every player's name, score and ping in roster order, and the round's words.
// It only shows the session's state when told to refresh; only UnloadNow closes it.
class frmScores final : public QWidget
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(frmScores)

public:
    // The five ruled lines, in pixels of the client area.
    struct ScoreLines
    {
        QLine Line1; // under the column header
        QLine Line2; // between the name and score columns
        QLine Line3; // between the score and ping columns
        QLine Line4; // under the three columns
        QLine Line5; // between the footnote and the words
    };

    explicit frmScores(Session& session);
    ~frmScores() override;

    // Rebuilds the columns that Player, Score and Ping select (unless Sorted) and, with Words,
    // the two word lines.
    void UpdateList(bool Player = false, bool Score = false, bool Ping = false, bool Words = false,
                    bool Sorted = false);
    // The same, once, after the events already waiting: a burst of updates costs one refresh
    // of what any of them asked for, not one each.
    void UpdateListSoon(bool Player, bool Score, bool Ping, bool Words);
    // Lets the window close, closes it and schedules its deletion.
    void UnloadNow();

    bool UnloadAllowed() const { return m_unloadAllowed; }
    const ScoreLines& Lines() const { return m_lines; }

protected:
    void closeEvent(QCloseEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    void paintEvent(QPaintEvent* event) override;

private:
    void Place();
    void LayOut();

    Session& m_session;
    bool m_unloadAllowed = false;
    ScoreLines m_lines;
    // What UpdateListSoon was asked for since its refresh was scheduled; emplace() clears it all.
    // (No member initialisers: clang cannot construct a nested class that has them inside the
    // class that holds it.)
    struct Pending
    {
        bool Player;
        bool Score;
        bool Ping;
        bool Words;
    };
    std::optional<Pending> m_pending;

    QLabel* Label1;
    QLabel* lblPlayers;
    QLabel* lblScores;
    QLabel* lblPings;
    QLabel* lblScoresAsterisk;
    QLabel* lblStartingWordCaption;
    QLabel* lblStartWord;
    QLabel* lblWordToFindCaption;
    QLabel* lblNextWord;
};

} // namespace linkhop
