// bench-exchanges BASE-URL: makes the three exchanges of a check for the update of version 1 of
// "Bench", and nothing else.
#include <ZVUpdate/ZVUpdate.h>

#include <QCoreApplication>

#include <cstdio>

int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    if (arguments.size() != 2) {
        std::fputs("bench-exchanges: give a base URL\n", stderr);
        return 2;
    }
    const QString product = QStringLiteral("Bench");
    UpdateLogicFunc client;
    client.setMBaseURL(arguments[1]);
    const auto reply = client.doCheckUpdate(product, QStringLiteral("1"));
    const auto token = client.doGetToken();
    if (!reply->ok() || !token->ok())
        return 1;
    const QString file = product + QLatin1Char('_') + reply->ZVUpdateVersion().value_or(QString()) +
                         QLatin1String(".exe");
    return client.doGetFileSize(token->ID().value_or(QString()), file) > 0 ? 0 : 1;
}
