# Lasso round the cup on its saucer in coffee.png (600x400), photo pixels "x,y".
# `pxcut cut` uses it when no photo is given.
62,220 72,150 110,100 160,68 172,25 230,4 330,2 400,20 425,55 462,105 488,170
496,240 478,318 425,368 340,398 250,399 165,385 100,345 68,290
