#pragma once

#include "HostOptions.h"

#include <ZVUpdate/ZVUpdate.h>

#include <QString>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

/// What one look at a host's set-up has found.
struct Finding
{
    /// What was looked at: one word.
    QString name;
    /// What is the case: a sentence.
    QString message;
    /// What to do about it: a sentence. Absent when all is well.
    std::optional<QString> remedy = {};
};

/// Looks at all that an update of one product depends on. Asks the service as a check does, but
/// changes nothing and downloads nothing.
class Doctor
{
public:
    using Report = std::function<void(const Finding &)>;

    /// The path of the host's program is absolute, unless it is empty.
    Doctor(const HostOptions &host, const QString &program, const Report &report);

    /// Tells what it finds, one thing after the other. True when all is well.
    bool examine();

private:
    void pass(const QString &name, const QString &message);
    bool fail(const QString &name, const QString &message, const QString &remedy);

    void examineClock();
    void examineInstallation();
    void examinePreferences();
    void examineSwitch();
    void examineDirectory();
    bool examineAddress();
    void examineProxy();
    bool examineReply();
    void examineSignature();
    bool examineToken();
    void examineSize();
    void examineFiles();
    void listFiles();
    bool examineInstaller();
    void examineTemporaryFile();
    void examineRoom();

    const QString productID_;
    const QString productVersion_;
    const QString directory_;
    const QString program_;
    const QList<QByteArray> releaseKeys_;
    const Report report_;
    UpdateLogicFunc client_;
    bool isAllWell_ = true;

    // What the service offers, as far as it has been found out.
    std::optional<UpdateFiles> files_;
    QString digest_; // In lower case.
    std::shared_ptr<CheckUpdateResponse> reply_;
    QString token_;
    std::optional<uint64_t> size_;
    bool isInstallerHere_ = false; // And verified.
};
