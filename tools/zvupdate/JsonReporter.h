#pragma once

#include "CheckReporter.h"

class Console;

/// For programs: one JSON object a line on standard output, as docs/helper-process.md describes.
class JsonReporter final : public CheckReporter
{
public:
    explicit JsonReporter(Console &console) : console_(console) {}

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
    Console &console_;
    QString lastProgress_;
};
