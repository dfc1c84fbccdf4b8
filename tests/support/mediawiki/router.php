<?php
// PHP's built-in web server: /wiki/<title> is the encyclopedia's article path; every other address
// (/w/index.php, /w/api.php, /w/load.php, skins, /images) is a file under the document root.
$path = parse_url( $_SERVER['REQUEST_URI'], PHP_URL_PATH );
if ( $path === '/' || $path === '/wiki' || strncmp( $path, '/wiki/', 6 ) === 0 ) {
	$_SERVER['SCRIPT_NAME'] = '/w/index.php';
	$_SERVER['SCRIPT_FILENAME'] = $_SERVER['DOCUMENT_ROOT'] . '/w/index.php';
	chdir( dirname( $_SERVER['SCRIPT_FILENAME'] ) );
	require $_SERVER['SCRIPT_FILENAME'];
	return true;
}
return false;
