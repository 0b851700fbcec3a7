[playlist]
NumberOfEntries=2
File1=http://radio.example/a
Title1=A
Length1=-1
File2=local.mp3
Version=2
