#pragma once

#include "Reply.h"
#include "Request.h"

#include <QMap>
#include <QString>

#include <functional>
#include <optional>

/// What goes wrong on purpose, for hosts that are to be seen on a bad day: a set of faults, some
/// with a number or a word that says where. A value.
class Faults
{
public:
    /// Takes one more, written NAME or NAME=AT. Absent on success, else what is wrong with it and
    /// the remedy.
    std::optional<QString> add(const QString &text);

    /// The faults as they were written, by name; "none" when there are none.
    QString toString() const;

    /// Has a request answered in good health and spoils the answer on its way. The answer's remark
    /// says which faults have had an effect.
    Reply answer(Request request, const std::function<Reply(const Request &)> &healthy) const;

private:
    /// By name, what was written after the equals sign; empty when nothing was.
    QMap<QString, QString> given_;
};
