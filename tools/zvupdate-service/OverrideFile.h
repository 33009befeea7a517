#pragma once

#include <QString>

#include <optional>

/// The file in the developer's home through which update clients on this machine are pointed at
/// another service. Written for as long as this object lives.
class OverrideFile
{
public:
    OverrideFile() = default;
    /// Removes the file, unless somebody has put something else there meanwhile.
    ~OverrideFile();
    OverrideFile(const OverrideFile &) = delete;
    OverrideFile &operator=(const OverrideFile &) = delete;

    /// Writes the base URL. Absent on success, else one line that says what is wrong: above all, a
    /// file that points elsewhere is left alone.
    std::optional<QString> write(const QString &baseUrl);

    static QString path();

private:
    QByteArray contents_; // empty as long as nothing is written
};
