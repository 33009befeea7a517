#pragma once

#include "Faults.h"
#include "HttpMessages.h"
#include "ReleaseFolder.h"
#include "TokenStore.h"

/// Answers the service's commands. Knows HTTP's words (methods, status, fields) but not how they
/// travel. Holds on to the folder and the tokens, which must live longer; may be called from any
/// thread.
class CommandHandler
{
public:
    CommandHandler(ReleaseFolder &folder, TokenStore &tokens, const Faults &faults)
        : folder_(folder), tokens_(tokens), faults_(faults)
    {
    }

    Reply answer(const Request &request);

    /// The path of every command.
    static constexpr char commandPath[] = "/Update/ZVDLCtl.dll";

private:
    Reply answerCommand(const Request &request, const QString &text);
    Reply checkUpdate(const QString &productId, const QString &version);
    Reply download(const QString &token, const QString &fileName, const Request &request);
    void interrupt(Reply &reply, qint64 size) const;

    ReleaseFolder &folder_;
    TokenStore &tokens_;
    const Faults faults_;
};
