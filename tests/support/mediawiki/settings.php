<?php
// Settings of the test encyclopedia, read after those that install.php wrote. $linkhopWiki is the
// wiki's folder. The site looks like the English encyclopedia: named Wikipedia, articles under
// /wiki/, the Vector 2022 skin.
if ( !defined( 'MEDIAWIKI' ) ) {
	exit;
}
// Whatever address the test serves it on.
$wgServer = WebRequest::detectServer();
$wgCanonicalServer = $wgServer;
$wgArticlePath = '/wiki/$1';
$wgUsePathInfo = true;
$wgDefaultSkin = 'vector-2022';
// A logo of our own instead of the installer's placeholder.
$wgLogos = [ '1x' => '/linkhop.png', 'icon' => '/linkhop.png' ];
$wgCacheDirectory = "$linkhopWiki/cache";
$wgEnableUploads = true;
$wgUploadDirectory = "$linkhopWiki/root/images";
$wgUploadPath = '/images';
$wgUseImageMagick = false;
$wgUseInstantCommons = false;
// PHP's own server runs a few workers on one SQLite file: keep writes during page views rare.
$wgMainCacheType = CACHE_NONE;
$wgParserCacheType = CACHE_NONE;
$wgMessageCacheType = CACHE_NONE;
$wgSessionCacheType = CACHE_DB;
$wgJobRunRate = 0;
$wgEnableEmail = false;
$wgShowExceptionDetails = true;
$wgRateLimits = [];

// What the English encyclopedia runs for its readers, as far as Debian's package ships it: the
// image viewer, footnotes, parser functions for templates, clickable images, category trees, page
// images and extracts (for previews), and the visual editor (Parsoid within MediaWiki). Thumbnails
// are drawn by PHP's GD.
wfLoadExtensions( [
	'Cite', 'ParserFunctions', 'ImageMap', 'CategoryTree', 'PageImages', 'TextExtracts',
	'MultimediaViewer', 'VisualEditor',
] );
