#pragma once

#include <ZVUpdate/ZVUpdate.h>

#include <QString>

#include <cstdint>
#include <functional>
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

    /// The directory's path is absolute, and so is the host's program's, unless it is empty.
    Doctor(const QString &productID, const QString &productVersion, const QString &directory,
           const QString &program, const Report &report);

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
    const Report report_;
    UpdateLogicFunc client_;
    bool isAllWell_ = true;

    // What the service offers, as far as it has been found out.
    std::optional<UpdateFiles> files_;
    QString digest_; // In lower case.
    QString token_;
    std::optional<uint64_t> size_;
    bool isInstallerHere_ = false; // And verified.
};
