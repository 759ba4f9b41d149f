#pragma once

// Gives the file open at to the owner, group, extended attributes, access list and mode of the file open
// at from. false if one of them cannot be given; some may have been by then.
bool kpe_copy_attributes(int from, int to);

// An extended attribute by which kpe knows a file as its own that has not become anything yet. It holds the number of
// the inode, so that no copy of the file counts as marked, and is never copied. Where the file system takes no such
// attributes nothing is ever marked. errno stays.
void kpe_mark_unfinished(int fd);
bool kpe_is_unfinished(int fd);
void kpe_mark_finished(int fd);
