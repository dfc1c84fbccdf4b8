<?php
// Draws the test encyclopedia's pictures with PHP's GD, for importImages.php to upload:
//   php pictures.php <folder> <name>=<rrggbb> ...
// Each is 640 by 480: its colour, a pale disc and its name, so that no two are the same file
// (the upload skips duplicates). ".png" is drawn as PNG, anything else as JPEG.
if ( $argc < 2 || !function_exists( 'imagecreatetruecolor' ) ) {
	fwrite( STDERR, "usage: php pictures.php <folder> <name>=<rrggbb> ... (needs php-gd)\n" );
	exit( 2 );
}
$folder = $argv[1];
foreach ( array_slice( $argv, 2 ) as $spec ) {
	$cut = strrpos( $spec, '=' );
	$name = substr( $spec, 0, $cut );
	$rgb = array_map( 'hexdec', str_split( substr( $spec, $cut + 1 ), 2 ) );
	$picture = imagecreatetruecolor( 640, 480 );
	imagefilledrectangle( $picture, 0, 0, 639, 479, imagecolorallocate( $picture, ...$rgb ) );
	imagefilledellipse( $picture, 320, 240, 320, 320, imagecolorallocate( $picture, 250, 250, 240 ) );
	imagestring( $picture, 5, 24, 24, $name, imagecolorallocate( $picture, 20, 20, 20 ) );
	$path = "$folder/$name";
	$drawn = str_ends_with( strtolower( $name ), '.png' )
		? imagepng( $picture, $path )
		: imagejpeg( $picture, $path, 85 );
	if ( !$drawn ) {
		fwrite( STDERR, "cannot write $path\n" );
		exit( 1 );
	}
}
