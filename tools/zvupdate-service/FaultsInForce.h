#pragma once

#include "Faults.h"

#include <QByteArray>
#include <QString>

#include <mutex>
#include <optional>

/// The faults of this moment: those in the file "faults" of the folder that is served, a fault a
/// line, as long as there is that file; else those of the command line. Changes are logged; a file
/// that is not understood is logged too, and changes nothing.
///
/// load() comes first; after that any thread may ask.
class FaultsInForce
{
public:
    FaultsInForce(const QString &directory, const Faults &ofCommandLine);

    /// Reads the file for the first time. Absent on success, else one line that says what is wrong.
    std::optional<QString> load();

    /// Looks at the file first.
    Faults now();

private:
    std::optional<QByteArray> contents() const;
    std::optional<Faults> parse(const std::optional<QByteArray> &contents, QString *error) const;

    const QString path_;
    const Faults ofCommandLine_;

    std::mutex mutex_;
    // Under mutex_.
    std::optional<QByteArray> contents_; // as last seen, absent without a file
    Faults faults_;
};
