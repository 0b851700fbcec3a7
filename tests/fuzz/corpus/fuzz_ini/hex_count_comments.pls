; comment
[Playlist]
# another
numberofentries = 0x2 ; inline
file1 : http://h/1;token=a
file2=http://h/2
