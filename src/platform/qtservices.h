#pragma once

#include "services.h"

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

class QtProgramEnd final : public ProgramEnd
{
public:
    void End(int exitCode) override;
};

} // namespace linkhop
