#pragma once

#include "CheckReporter.h"
#include "ProgressLine.h"

class Console;

/// For people: a line a step, and a progress bar where standard output is a terminal.
class TextReporter final : public CheckReporter
{
public:
    explicit TextReporter(Console &console);

    void asking(const CheckSettings &settings) override;
    void answered(int64_t result, const CheckUpdateResponse *reply,
                  const QString &temporaryPath) override;
    void progressed(const UpdateDownloadProgress &progress) override;
    void ready(const QString &path) override;
    void windowEnded(WindowAction action) override;
    void failed(const CheckFailure &failure) override;
    QByteArray lastWords(const CheckFailure &failure) const override;
    int lastWordsDescriptor() const override;

private:
    void tellNoUpdate(const CheckUpdateResponse &reply);

    Console &console_;
    const bool isTerminal_;
    bool hasBegun_ = false; // Whether bytes have been asked for and are coming.
    ProgressLine progressLine_;
};
