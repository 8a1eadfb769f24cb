// Filling a user's name into a platform error text, whose "%a" marks where
// the name goes ("User %a not listed in Domino Directory").
//
// Every "%a" is replaced. After each replacement the search goes on two
// characters after where the name was put, not after the whole name, so a
// name holding "%a" may itself be filled again; the text stops growing at
// kMaxNamedErrorText bytes so that such a name cannot make it grow forever.
#ifndef TARNWICK_STATUS_NAMEPLACEHOLDER_H
#define TARNWICK_STATUS_NAMEPLACEHOLDER_H

#include <cstddef>
#include <string>

constexpr size_t kMaxNamedErrorText = 1024;

std::string withNameFilledIn(std::string text, const std::string& name);

#endif  // TARNWICK_STATUS_NAMEPLACEHOLDER_H
