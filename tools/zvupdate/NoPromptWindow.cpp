#include "PromptWindow.h"

bool PromptWindow::isHere()
{
    return false;
}

ZVPlatform::Result<void> PromptWindow::findDisplay()
{
    return ZVPlatform::Failure{QStringLiteral("this program has no window")};
}

std::unique_ptr<QCoreApplication> PromptWindow::makeApplication(int &count, char **arguments)
{
    return std::make_unique<QCoreApplication>(count, arguments);
}

bool PromptWindow::show(ZVUpdateProc & /*controller*/, const QString & /*productName*/,
                        const std::function<void()> & /*closed*/)
{
    return false;
}
