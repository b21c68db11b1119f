// Puts findings into words.
#include "znmfinding.h"

#include "tovmsrid.h"
#include "tovxcs2.h"

ZNM_SOURCE_ID(ZNM_MIGRATE_TOOL("znmfinding"));

const char* ZNFindingText(ZN_FINDING eFinding)
{
    switch (eFinding)
    {
    case ZN_FINDING::NOT_LISTED:
        return "The directory cannot be listed";
    case ZN_FINDING::NOT_IDENTIFIED:
        return "The directory cannot be told from others";
    case ZN_FINDING::NOT_READ:
        return "The file cannot be read";
    case ZN_FINDING::PATH_TOO_LONG:
        return "The path is too long to be copied";
    case ZN_FINDING::NEW_PATH_TOO_LONG:
        return "The path would be too long in the new place";
    case ZN_FINDING::LINK_CYCLE:
        return "A link leads back to a directory above it";
    case ZN_FINDING::NEW_DIRECTORY:
        return "This directory of an old tree is a new directory";
    case ZN_FINDING::CONFIGURATION:
        return "This directory of an old tree is the directory of zns.ini";
    case ZN_FINDING::SHARED_DESTINATION:
        return "Two directories would be copied into this one";
    case ZN_FINDING::SOURCE_OVERWRITTEN:
        return "The copy would write into this directory of an old tree";
    case ZN_FINDING::MISSING:
        return "The file or directory is missing";
    case ZN_FINDING::APPEARED:
        return "The file or directory was not there before";
    case ZN_FINDING::OTHER_KIND:
        return "A directory stands in the place of a file, or a file in the place of a directory";
    case ZN_FINDING::OTHER_SIZE:
        return "The file has another size";
    case ZN_FINDING::OTHER_TIME:
        return "The file has another time of its last write";
    case ZN_FINDING::IS_LINK:
        return "A link stands in the place of the file";
    }
    return "";
}

ZNFindingReport ZNTraceFinding(const CZNMTrace& trace, const char* pszMeaning)
{
    return [&trace, pszMeaning](const ZNFinding& finding) {
        trace.Parms("%s. %s: '%S', error %u", pszMeaning, ZNFindingText(finding.eFinding), finding.strPath,
                    finding.nError);
        return false;
    };
}
