#pragma once

#include "../platform/Export.h"

#include <QString>
#include <QStringList>

#include <optional>

/// The service's generic reply: the whole reply of the token command, and the outer layer of the
/// check-update reply.
///
/// A value like any other: copy it freely; one object is not to be changed and read by two threads
/// at once.
class ZVUPDATE_EXPORT BaseResponse
{
public:
    /// Reads a reply text. A text that is absent, or is not a JSON object, gives a record whose ok
    /// is false and whose other fields are absent; that is not an error.
    explicit BaseResponse(const std::optional<QString> &json);

    ///@{
    /// Whether the service says that the command succeeded.
    bool ok() const { return ok_; }
    void setOk(bool ok) { ok_ = ok; }
    ///@}
    ///@{
    /// The service's message, if any.
    const std::optional<QString> &msg() const { return msg_; }
    void setMsg(const std::optional<QString> &msg) { msg_ = msg; }
    ///@}
    ///@{
    /// The download token, on the reply of the token command.
    const std::optional<QString> &ID() const { return ID_; }
    void setID(const std::optional<QString> &ID) { ID_ = ID; }
    ///@}
    ///@{
    /// The sealed inner object, on the check-update reply.
    const std::optional<QString> &data() const { return data_; }
    void setData(const std::optional<QString> &data) { data_ = data; }
    ///@}

    /// The signatures of what is sealed, in Base64, for those who demand them.
    const QStringList &signatures() const { return signatures_; }

    /// One line for logs; absent fields print as (null).
    QString debugDescription() const;

private:
    bool ok_ = false;
    std::optional<QString> msg_;
    std::optional<QString> ID_;
    std::optional<QString> data_;
    QStringList signatures_;
};
