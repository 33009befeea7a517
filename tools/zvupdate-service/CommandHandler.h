#pragma once

#include "Command.h"
#include "ReleaseFolder.h"
#include "Reply.h"
#include "Request.h"
#include "TokenStore.h"

/// Answers the service's commands. Knows HTTP's words (methods, status, fields) but not how they
/// travel. Holds on to the folder and the tokens, which must live longer; may be called from any
/// thread.
class CommandHandler
{
public:
    CommandHandler(ReleaseFolder &folder, TokenStore &tokens) : folder_(folder), tokens_(tokens) {}

    Reply answer(const Request &request);

    /// The path of every command.
    static constexpr char commandPath[] = "/Update/ZVDLCtl.dll";

private:
    Reply answerCommand(const Request &request, const QString &text);
    Reply checkUpdate(const Command::CheckUpdate &command);
    Reply getToken();
    Reply download(const Command::Download &command, const QByteArray &range);

    ReleaseFolder &folder_;
    TokenStore &tokens_;
};
