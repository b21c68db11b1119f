# The product's stand-in: stanza engine, libraries, end command, sample queue manager.
