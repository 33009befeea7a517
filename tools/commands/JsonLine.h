#pragma once

#include <QJsonValue>
#include <QString>

#include <initializer_list>
#include <utility>

/// A JSON object on one line, its members in the order given.
QString jsonLine(std::initializer_list<std::pair<QString, QJsonValue>> members);
