// ZNDecide: what follows from what is known after a move, however it ended. Facts go in, typed steps come
// out.
//
// It knows no path, no text, no file and no clock, so that every combination of facts can be tried.
#pragma once

#include <vector>

enum ZN_TREE
{
    ZN_DATA,
    ZN_LOG,
    ZN_TREES
};
enum ZN_SIDE
{
    ZN_OLD,
    ZN_NEW,
    ZN_SIDES
};

// --- Facts --------------------------------------------------------------------------------------------

enum class ZN_LOOK
{
    OK,
    UNDER_WAY, // a move of the queue manager runs
    UNUSABLE,  // for a reason of ZN_TROUBLE
};
enum class ZN_CONF // which trees the configuration files name
{
    OLD,
    BETWEEN, // the new data tree and the old log tree
    NEW,
};
enum class ZN_PRESENCE
{
    THERE,
    GONE,   // its volume is there and the path is not
    UNSEEN, // its place is not known, its volume is absent, or it cannot be read
};
// How the old tree stands to the new one, by bytes. A tree is "in" another one if each of its files is the
// beginning of the same file there.
enum class ZN_RELATION
{
    SAME,
    OLD_IN_NEW,
    NEW_IN_OLD,
    CUT, // the new one would be in the old one, but for zeros at the end of files
    APART,
};
enum class ZN_RECORDED // how a tree stands to the record
{
    NONE, // there is no record
    IS,
    GREW,  // the recorded digests are those of the first bytes; files may have been added
    OTHER, // something is missing or another content
};
enum class ZN_TIE // what keeps the two trees of a pair from being deleted
{
    FREE,
    LINKED, // a link, or a file of two names, lies in one of them: it may be renamed, but not deleted
    HELD, // they share a directory, or one holds zns.ini, the record or a directory of another queue manager
};

struct ZNPairFacts
{
    ZN_PRESENCE aePresence[ZN_SIDES] = {ZN_PRESENCE::UNSEEN, ZN_PRESENCE::UNSEEN};
    ZN_RECORDED aeRecorded[ZN_SIDES] = {};
    ZN_RELATION eRelation = ZN_RELATION::APART; // counts only where both are there
    ZN_TIE eTie = ZN_TIE::FREE;
};

struct ZNFacts
{
    ZN_LOOK eLook = ZN_LOOK::OK;
    ZN_CONF eConf = ZN_CONF::OLD;
    bool fRuns = false;
    bool fAccepts = false; // the look before a move would not stop it
    bool fWayBack = false; // the command can move the trees to where they were
    ZNPairFacts aPairs[ZN_TREES];
};

// --- What follows -------------------------------------------------------------------------------------

// Exit statuses of the program.
enum ZN_STATUS
{
    ZN_STATUS_OK = 0,          // moved, nothing is left; or nothing stops the move; or no move to watch
    ZN_STATUS_NOT_MOVED = 1,   // or something stops the move
    ZN_STATUS_TO_DO = 2,       // everything is there, and there is something to do
    ZN_STATUS_CANNOT_TELL = 3, // or something is missing, or is not as it was recorded
    ZN_STATUS_UNDER_WAY = 4,
    ZN_STATUS_INVALID = 5, // an invalid word on the command line
};

enum class ZN_STATE
{
    CANNOT_TELL,
    UNDER_WAY,
    NOT_MOVED,
    IN_BETWEEN,
    MOVED,
    MOVED_LEFT, // something is left of the old trees
    NEW_AHEAD,  // the files do not name the new trees, which hold more
    OLD_AHEAD,  // the files do not name the old trees, which hold more
    LOG_BEHIND, // the files name the new trees; the old log tree holds more than the new one
};

enum class ZN_START // whether it is safe to start the queue manager
{
    NO,
    YES,
    RUNS,
};

enum class ZN_STEP
{
    END, // the queue manager
    MOVE,
    MOVE_BACK,
    EDIT_PREFIX,     // to the side
    EDIT_LOG_PATH,   // to the new log tree
    COPY_LOG,        // from the old place to the new one
    REMOVE,          // the tree
    ASIDE,           // rename the tree beside itself
    LOOK,            // again; the last step is this one or one of those that follow
    LOOK_NAMED,      // with the old places, or when a volume is there again
    LOOK_UNRECORDED, // with the old places and without the record
    BEFORE,          // see what stops the move
    WATCH,           // the move that is under way
};

struct ZNStep
{
    ZN_STEP eStep = ZN_STEP::LOOK;
    ZN_TREE eTree = ZN_DATA;
    ZN_SIDE eSide = ZN_OLD;
    bool fOnlyIf = false; // what the operator has to know is not among the facts: where it ran
};

struct ZNVerdict
{
    ZN_STATE eState = ZN_STATE::CANNOT_TELL;
    ZN_STATUS eStatus = ZN_STATUS_CANNOT_TELL;
    ZN_START eStart = ZN_START::NO;
    std::vector<ZNStep> finish, takeBack; // in their order
};

// Which side of a pair the configuration names.
ZN_SIDE ZNCountingSide(ZN_CONF eConf, ZN_TREE eTree);

// A deletion is among the steps only if the tree is in the one that stays, and is tied to nothing.
ZNVerdict ZNDecide(const ZNFacts& facts);
