// Puts findings into words.
#include "znmfinding.h"

#include <string_view>

#include "tovmsrid.h"

ZNM_SOURCE_ID(ZNM_MIGRATE_TOOL("znmfinding"));

const char* ZNFindingText(ZN_FINDING eFinding)
{
    switch (eFinding)
    {
    case ZN_FINDING::NOT_LISTED:
        return "The directory cannot be listed";
    case ZN_FINDING::NOT_IDENTIFIED:
        return "The directory or file cannot be told from others";
    case ZN_FINDING::NOT_READ:
        return "The file cannot be read";
    case ZN_FINDING::NOT_WRITTEN:
        return "A file cannot be made in the new directory";
    case ZN_FINDING::PATH_TOO_LONG:
        return "The path is too long to be copied";
    case ZN_FINDING::NEW_PATH_TOO_LONG:
        return "The path would be too long in the new place";
    case ZN_FINDING::LINK_CYCLE:
        return "A link leads back to a directory above it";
    case ZN_FINDING::NEW_DIRECTORY:
        return "This directory of an old tree is a new directory, or holds one";
    case ZN_FINDING::CONFIGURATION:
        return "This directory of an old tree, or of the copy, is the directory of zns.ini";
    case ZN_FINDING::SHARED_DESTINATION:
        return "Two directories would be copied into this one";
    case ZN_FINDING::CLAIMED:
        return "Another move copies into this directory, or that cannot be told";
    case ZN_FINDING::SOURCE_OVERWRITTEN:
        return "The new place leads to a directory or file of an old tree";
    case ZN_FINDING::MANY_NAMES:
        return "The copy would overwrite a file that has other names too";
    case ZN_FINDING::LINK_OVERWRITTEN:
        return "The copy would overwrite a file through a link";
    case ZN_FINDING::OTHER_QUEUE_MANAGER:
        return "The directory belongs to another queue manager";
    case ZN_FINDING::MISSING:
        return "The file or directory is missing";
    case ZN_FINDING::APPEARED:
        return "The file or directory was not there before";
    case ZN_FINDING::OTHER_DIRECTORY:
        return "Another directory stands in the place of the one that was copied";
    case ZN_FINDING::OTHER_KIND:
        return "A directory stands in the place of a file, or a file in the place of a directory";
    case ZN_FINDING::OTHER_CONTENT:
        return "The file has another content";
    case ZN_FINDING::RECORD:
        return "The record lies in this directory";
    case ZN_FINDING::OTHER_SIZE:
        return "The file has another size";
    case ZN_FINDING::OTHER_TIME:
        return "The file has another time of its last write";
    case ZN_FINDING::IS_LINK:
        return "A link stands in the place of the file or directory, or the reverse";
    }
    return "";
}

std::wstring ZNFormatFinding(const ZNFinding& finding)
{
    const std::string_view text = ZNFindingText(finding.eFinding);
    std::wstring strLine(text.begin(), text.end());
    strLine.append(L": ").append(finding.strPath);
    return finding.nError == ERROR_SUCCESS ? strLine
                                           : strLine + L", error " + std::to_wstring(finding.nError);
}

bool CZNFindings::Add(ZN_FINDING eFinding, const std::wstring& strPath, DWORD nError)
{
    if (!IsFull())
        m_first.push_back({eFinding, strPath, nError});
    ++m_nCount;
    return false;
}

bool CZNFindings::Trace(const CZNMTrace& trace, const char* pszMeaning) const
{
    if (!IsEmpty())
        trace.Parms("%s. %S", pszMeaning, ZNFormatFinding(m_first.front()).c_str());
    return IsEmpty();
}
