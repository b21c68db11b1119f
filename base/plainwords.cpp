// Linked into every program: its words reach it as they were typed, wildcards unexpanded.
extern "C" int _dowildcard;
int _dowildcard = 0;
