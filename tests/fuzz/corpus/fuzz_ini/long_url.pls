[playlist]
numberofentries=1
file1=http://stream.example/live?token=Ab3-_x9Ab3-_x9Ab3-_x9Ab3-_x9Ab3-_x9Ab3-_x9Ab3-_x9Ab3-_x9Ab3-_x9Ab3-_x9Ab3-_x9Ab3-_x9Ab3-_x9Ab3-_x9Ab3-_x9Ab3-_x9Ab3-_x9Ab3-_x9Ab3-_x9Ab3-_x9Ab3-_x9Ab3-_x9Ab3-_x9Ab3-_x9Ab3-_x9Ab3-_x9Ab3-_x9Ab3-_x9Ab3-_x9Ab3-_x9Ab3-_x9Ab3-_x9Ab3-_x9Ab3-_x9Ab3-_x9Ab3-_x9Ab3-_x9Ab3-_x9Ab3-_x9Ab3-_x9Ab3-_x9Ab3-_x9Ab3-_x9Ab3-_x9Ab3-_x9Ab3-_x9Ab3-_x9Ab3-_x9Ab3-_x9Ab3-_x9Ab3-_x9Ab3-_x9Ab3-_x9Ab3-_x9Ab3-_x9Ab3-_x9Ab3-_x9Ab3-_x9Ab3-_x9Ab3-_x9
