// What the command prints, in English.
#pragma once

#include <map>
#include <string>

const std::string USAGE = "Usage: tarvel /m queuemanager /dd absolutedatapath /ld absolutelogpath\r\n";
constexpr DWORD FAILED = 0xFFFFFFFF;

inline std::string Message(unsigned nID)
{
    const std::map<unsigned, std::string> texts = {
        {32, "The specified Vantor ZN Queue Manager does not exist."},
        {33, "The specified Vantor ZN Queue Manager is still active.\r\nThe Queue Manager should be stopped "
             "before proceeding."},
        {37, "An error occurred whilst creating/accessing the destination directories."},
        {38, "An error occurred whilst copying the Queue Manager files to the destination directory."},
        {39, "An error occurred whilst updating the registry information."},
        {40, "An error occurred whilst removing the old data and log directories for this Queue Manager."},
        {42, "The specified destination is used by this Queue Manager. The destination directories must be "
             "unique."},
        {47, "The specified Vantor ZN Queue Manager is configured for multi-instance support and cannot be "
             "moved."}};
    return nID != 0 ? texts.at(nID) + "\r\n" : "";
}
