#pragma once

#include "services.h"

#include <QList>
#include <QPointer>
#include <QThread>

namespace linkhop {

inline constexpr QStringView kApplicationTitle = u"Linkhop";

class QtPrompts final : public Prompts
{
public:
    void MessageBox(const QString& text, Icon icon) override;
    QString InputBox(const QString& prompt) override;
};

class QtLauncher final : public Launcher
{
public:
    bool Start(const QString& program) override;
};

// The router asked by NAT-PMP, then UPnP discovery, as the server asks it for its mapping.
class QtRouterProbe final : public RouterProbe
{
public:
    QtRouterProbe() = default;
    ~QtRouterProbe() override; // waits for questions still asked, within the router's bounds
    Q_DISABLE_COPY_MOVE(QtRouterProbe)
    void AskExternalAddress(QObject* context, std::function<void(const QHostAddress&)> done) override;

private:
    QList<QPointer<QThread>> m_asking;
};

class QtProgramEnd final : public ProgramEnd
{
public:
    void End(int exitCode) override;
};

} // namespace linkhop
