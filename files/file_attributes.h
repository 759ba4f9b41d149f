#pragma once

// Gives the open file to the owner, group, extended attributes, access list and mode of the open file from. Returns
// false if one of them cannot be given; others may have been given by then.
bool kpe_copy_attributes(int from, int to);

// kpe marks a new file until it is finished, so that an unfinished one is known as kpe's own after a crash. The mark is
// an extended attribute. It holds the number of the inode, so a copy of the file does not count as marked. Where the
// file system knows no such attributes nothing is ever marked. These functions leave errno as it is.
void kpe_mark_unfinished(int fd);
bool kpe_is_unfinished(int fd);
void kpe_mark_finished(int fd);
