#pragma once

#include <QByteArrayView>

/// What a Range header field asks of a file of a given size.
class RangeHeader
{
public:
    enum class Kind {
        /// No range, several ranges, or a field that is not understood: send the whole file.
        Whole,
        /// Send length() bytes from offset().
        Part,
        /// The range begins past the end of the file.
        Unsatisfiable,
    };

    /// value is the field's text, empty when the request has none.
    RangeHeader(QByteArrayView value, qint64 fileSize);

    Kind kind() const { return kind_; }
    /// For Whole the whole file, for Unsatisfiable nothing.
    qint64 offset() const { return offset_; }
    qint64 length() const { return length_; }

private:
    void set(quint64 first, quint64 last, quint64 fileSize);

    Kind kind_ = Kind::Whole;
    qint64 offset_ = 0;
    qint64 length_;
};
