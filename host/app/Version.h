#pragma once
// The version and the commit of this build, as `sorvel --version` prints them. Defined in a
// source that cmake/Version.cmake writes at every build, so that a new commit recompiles that
// one line and nothing that includes this header.

/// "sorvel VERSION (commit COMMIT)"; the commit is followed by "-modified" for a build of a
/// work tree with changes, and is "unknown" outside a git clone.
const char* sorvelVersionLine();
