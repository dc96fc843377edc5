#pragma once

// A magnet link as the download page takes it: the group it starts, one source for every http
// source the link names.

#include "search/result_records.h"
#include "transfer/magnet_link.h"

#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace corvid::transfer {

// The host and port of "http://host[:port]/..." (80 when the URL names none); nothing for other
// schemes, user information, or a port outside 1-65535.
std::optional<std::pair<std::string, std::int32_t>> HttpHostAndPort(std::string_view url);

// The link's file as a result group: its SHA1, and one source per usable http source with the
// link's file name and length (0 when the link gives none or it does not fit the list's size).
// The page fetches each source at its host's "/uri-res/N2R?urn:sha1:" address.
ResultGroup MagnetGroup(const MagnetLink& link);

// The first source of a file known by its magnet link, found on the network: the hit, under the
// link's name when it has one.
ResultSource MagnetSource(const MagnetLink& link, ResultSource hit);

} // namespace corvid::transfer
