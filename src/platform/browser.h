#pragma once

#include <QString>
#include <QWidget>

namespace linkhop {

// The embedded browser the game is played in. Navigate returns at once; BeforeNavigate2 follows
// for every main-frame navigation (never refused) and TitleChange for every page, on the
// user-interface thread. A page is a document the main frame committed, under the title its server
// sent; what the document's scripts change afterwards (its address's fragment, its title) is not.
class Browser : public QWidget
{
    Q_OBJECT

public:
    using QWidget::QWidget;
    ~Browser() override = default;

    virtual void Navigate(const QString& url) = 0;
    // True from the start of a navigation until its page has loaded.
    virtual bool Busy() const = 0;
    virtual void GoBack() = 0;

Q_SIGNALS:
    void BeforeNavigate2(const QString& url);
    void TitleChange(const QString& title);
};

} // namespace linkhop
