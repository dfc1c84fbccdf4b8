<?php
// Writes generated pages straight into a test wiki's SQLite database, row for row as MediaWiki's
// importer writes them (text, content, revision, slots, page), and their link tables as MediaWiki
// would fill them: thousands of pages a second, where an import with its link updates takes a
// minute. The pages are articles (main namespace) whose wikitext holds only plain links,
// "[[Target]]" or "[[Target|text]]", or is "#REDIRECT [[Target]]".
// Arguments: the database file, then a file of pages, each a title line followed by a line of
// wikitext. Run after an import by the same contributor, whose actor it reuses.
if ( $argc < 3 ) {
	fwrite( STDERR, "usage: bulk.php DATABASE PAGES\n" );
	exit( 2 );
}
$db = new SQLite3( $argv[1] );
$db->enableExceptions( true );
$db->busyTimeout( 10000 );
$db->exec( 'PRAGMA synchronous = OFF' );
$db->exec( 'BEGIN' );

function one( SQLite3 $db, string $sql ) {
	$value = $db->querySingle( $sql );
	if ( $value === null || $value === false ) {
		throw new RuntimeException( "nothing for: $sql" );
	}
	return $value;
}

// A title as the database keys it: "_" for a space, the first letter in upper case.
function dbkey( string $title ): string {
	$key = str_replace( ' ', '_', trim( $title ) );
	return mb_strtoupper( mb_substr( $key, 0, 1 ) ) . mb_substr( $key, 1 );
}

// SHA-1 in base 36, 31 digits, as MediaWiki keeps it.
function sha1base36( string $text ): string {
	$digits = array_map( 'hexdec', str_split( sha1( $text ) ) );
	$out = '';
	while ( array_sum( $digits ) > 0 ) {
		$rest = 0;
		foreach ( $digits as $i => $digit ) {
			$value = $rest * 16 + $digit;
			$digits[$i] = intdiv( $value, 36 );
			$rest = $value % 36;
		}
		$out = base_convert( (string)$rest, 10, 36 ) . $out;
	}
	return str_pad( $out, 31, '0', STR_PAD_LEFT );
}

$actor = one( $db, "SELECT actor_id FROM actor WHERE actor_name = 'imported>Linkhop'" );
$comment = one( $db, "SELECT comment_id FROM comment WHERE comment_hash = 0 AND comment_text = ''" );
$model = one( $db, "SELECT model_id FROM content_models WHERE model_name = 'wikitext'" );
$role = one( $db, "SELECT role_id FROM slot_roles WHERE role_name = 'main'" );
$now = gmdate( 'YmdHis' );

$text = $db->prepare( "INSERT INTO text (old_text, old_flags) VALUES (:text, 'utf-8')" );
$content = $db->prepare( 'INSERT INTO content (content_size, content_sha1, content_model, content_address) ' .
	'VALUES (:size, :sha1, :model, :address)' );
$page = $db->prepare( 'INSERT INTO page (page_namespace, page_title, page_is_redirect, page_is_new, page_random, ' .
	"page_touched, page_links_updated, page_latest, page_len, page_content_model, page_lang) VALUES (0, :title, " .
	":redirect, 1, :random, :now, :now, 0, :size, 'wikitext', NULL)" );
$revision = $db->prepare( 'INSERT INTO revision (rev_page, rev_comment_id, rev_actor, rev_timestamp, ' .
	'rev_minor_edit, rev_deleted, rev_len, rev_parent_id, rev_sha1) VALUES (:page, 0, :actor, :now, 0, 0, :size, 0, :sha1)' );
$revComment = $db->prepare( 'INSERT INTO revision_comment_temp (revcomment_rev, revcomment_comment_id) VALUES (:rev, :comment)' );
$slot = $db->prepare( 'INSERT INTO slots (slot_revision_id, slot_role_id, slot_content_id, slot_origin) ' .
	'VALUES (:rev, :role, :content, :rev)' );
$latest = $db->prepare( 'UPDATE page SET page_latest = :rev WHERE page_id = :page' );
$link = $db->prepare( 'INSERT OR IGNORE INTO pagelinks (pl_from, pl_namespace, pl_title, pl_from_namespace) ' .
	'VALUES (:page, 0, :title, 0)' );
$redirect = $db->prepare( "INSERT INTO redirect (rd_from, rd_namespace, rd_title, rd_interwiki, rd_fragment) " .
	"VALUES (:page, 0, :title, '', '')" );

$lines = file( $argv[2], FILE_IGNORE_NEW_LINES );
for ( $i = 0; $i + 1 < count( $lines ); $i += 2 ) {
	$title = dbkey( $lines[$i] );
	$wikitext = $lines[$i + 1];
	$size = strlen( $wikitext );
	$sha1 = sha1base36( $wikitext );
	$target = preg_match( '/^#REDIRECT\s*\[\[([^\]|#]+)/i', $wikitext, $m ) ? dbkey( $m[1] ) : null;

	$text->bindValue( ':text', $wikitext );
	$text->execute();
	$textId = $db->lastInsertRowID();
	$content->bindValue( ':size', $size );
	$content->bindValue( ':sha1', $sha1 );
	$content->bindValue( ':model', $model );
	$content->bindValue( ':address', "tt:$textId" );
	$content->execute();
	$contentId = $db->lastInsertRowID();
	$page->bindValue( ':title', $title );
	$page->bindValue( ':redirect', $target === null ? 0 : 1 );
	$page->bindValue( ':random', mt_rand() / mt_getrandmax() );
	$page->bindValue( ':now', $now );
	$page->bindValue( ':size', $size );
	$page->execute();
	$pageId = $db->lastInsertRowID();
	$revision->bindValue( ':page', $pageId );
	$revision->bindValue( ':actor', $actor );
	$revision->bindValue( ':now', $now );
	$revision->bindValue( ':size', $size );
	$revision->bindValue( ':sha1', $sha1 );
	$revision->execute();
	$revId = $db->lastInsertRowID();
	$revComment->bindValue( ':rev', $revId );
	$revComment->bindValue( ':comment', $comment );
	$revComment->execute();
	$slot->bindValue( ':rev', $revId );
	$slot->bindValue( ':role', $role );
	$slot->bindValue( ':content', $contentId );
	$slot->execute();
	$latest->bindValue( ':rev', $revId );
	$latest->bindValue( ':page', $pageId );
	$latest->execute();

	preg_match_all( '/\[\[([^\]|#]+)/', $wikitext, $links );
	foreach ( $links[1] as $to ) {
		$link->bindValue( ':page', $pageId );
		$link->bindValue( ':title', dbkey( $to ) );
		$link->execute();
		$link->reset();
	}
	if ( $target !== null ) {
		$redirect->bindValue( ':page', $pageId );
		$redirect->bindValue( ':title', $target );
		$redirect->execute();
		$redirect->reset();
	}
	foreach ( [ $text, $content, $page, $revision, $revComment, $slot, $latest ] as $statement ) {
		$statement->reset();
	}
}
$db->exec( 'COMMIT' );
