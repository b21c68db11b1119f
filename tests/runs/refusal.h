// What a run of tarvel must show that did not move the queue manager.
#pragma once

#include <gmock/gmock.h>

#include <algorithm>

#include "installation.h"
#include "messagetexts.h"

constexpr char UNCHANGED[] = "data +- log +- zns old qm old";
constexpr char MOVED[] = "data -+ log -+ zns new qm new";
constexpr char NOTHING_LOST[] = "data +? log +? zns old qm old"; // the new trees may hold anything

// A '?' stands for any character.
inline bool IsState(const std::string& strState, std::string_view pattern)
{
    return std::ranges::equal(strState, pattern,
                              [](char ch, char chPattern) { return chPattern == '?' || ch == chPattern; });
}

// The message, or none (0), the usage line, and the state.
inline void ExpectRefusal(const Installation& zn, const RunResult& result, unsigned nMessage,
                          std::string_view state)
{
    EXPECT_EQ(result.nStatus, FAILED);
    EXPECT_EQ(result.strOut, "");
    EXPECT_EQ(result.strErr, Message(nMessage) + USAGE);
    EXPECT_TRUE(IsState(zn.State(), state)) << zn.State() << " and not " << state;
}
