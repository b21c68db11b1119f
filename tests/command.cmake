# The command and the cluster utility library, function by function and as whole runs.
