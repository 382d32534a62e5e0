# Lasso round the astronaut in astronaut.png (512x512), photo pixels "x,y".
# `pxcut cut examples/photos/astronaut.png` finds it beside the photo.
150,40 200,10 270,12 305,60 300,140 310,200 320,270 360,300 370,400 300,350
280,511 20,511 20,300 60,270 110,230 120,180 160,140
