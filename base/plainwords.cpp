// Linked into every program: its arguments reach it as they were typed. A star in a name is not looked up in
// the current directory.
extern "C" int _dowildcard;
int _dowildcard = 0;
