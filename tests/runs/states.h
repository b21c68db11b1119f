// What a run of tarvel leaves on disk, as Installation::State tells it.
#pragma once

#include <algorithm>

#include "installation.h"
#include "messagetexts.h"

constexpr char UNCHANGED[] = "data +- log +- zns old qm old";
constexpr char MOVED[] = "data -+ log -+ zns new qm new";
constexpr char COPIED_TWICE[] = "data ++ log ++ zns old qm old";
constexpr char NOTHING_LOST[] = "data +? log +? zns old qm old"; // the new trees may hold anything

// A '?' stands for any character.
inline bool IsState(const std::string& strState, std::string_view pattern)
{
    return std::ranges::equal(strState, pattern,
                              [](char ch, char chPattern) { return chPattern == '?' || ch == chPattern; });
}
