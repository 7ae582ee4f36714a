#!/usr/bin/env python3
# Writes the charset fixtures and manifest.tsv. Run from anywhere: python3 make_fixtures.py
#
# One short story about a river ferry, written for these tests in each language, saved in the
# charsets that language is found in. manifest.tsv gives for each file the UTF-8 text it holds,
# the charset names that must decode it, the names that are known not to, and whether detection
# without a name finds its text.

import os
import subprocess
import unicodedata

HERE = os.path.dirname(os.path.abspath(__file__))

TEXTS = {
    "en": (
        "The ferry across the river starts again in April, when the ice has gone and the water "
        "is calm. Every morning at seven the old captain rings a small bell, and the farmers "
        "from the other bank carry their baskets of apples, cheese and bread to the market "
        "square. Children wave from the bridge above the lock. In the evening the boat returns "
        "nearly empty, and the captain writes the number of passengers in a green notebook that "
        "his grandfather started sixty years ago. Last summer the town council wanted to replace "
        "the ferry with a second bridge, but the people voted against it: they like the slow "
        "crossing, the smell of tar and the stories the captain tells about floods, storms and "
        "lost cows.\n"
    ),
    "fr": (
        "Le bac qui traverse la rivière reprend son service en avril, quand la glace a fondu et "
        "que l'eau est calme. Chaque matin à sept heures, le vieux capitaine sonne une petite "
        "cloche, et les paysans de l'autre rive portent leurs paniers de pommes, de fromages et "
        "de pain jusqu'à la place du marché. Un aller coûte deux €, les enfants voyagent "
        "gratuitement. Les élèves font des signes depuis le pont au-dessus de l'écluse. Le soir, "
        "le bateau revient presque vide, et le capitaine note le nombre de passagers dans un "
        "cahier vert que son grand-père a commencé il y a soixante ans. L'été dernier, le "
        "conseil municipal voulait remplacer le bac par un deuxième pont, mais les habitants ont "
        "voté contre : ils aiment la traversée lente, l'odeur du goudron et les histoires du "
        "capitaine sur les crues, les tempêtes et les bœufs égarés. À Noël, on y boit du "
        "chocolat chaud, et ça suffit à rendre naïfs même les plus sérieux. C'est une œuvre de "
        "patience, disent-ils, et personne n'a envie de la détruire.\n"
    ),
    "es": (
        "El transbordador que cruza el río vuelve a funcionar en abril, cuando el hielo se ha "
        "derretido y el agua está tranquila. Cada mañana a las siete, el viejo capitán toca una "
        "campanita y los campesinos de la otra orilla llevan sus cestas de manzanas, queso y pan "
        "hasta la plaza del mercado. Los niños saludan desde el puente que está sobre la "
        "esclusa. Por la tarde, la barca regresa casi vacía y el capitán apunta el número de "
        "pasajeros en un cuaderno verde que su abuelo empezó hace sesenta años. ¿Por qué cambiar "
        "algo que funciona? El verano pasado el ayuntamiento quiso sustituir el transbordador "
        "por un segundo puente, pero los vecinos votaron en contra: les gusta la travesía lenta, "
        "el olor a alquitrán y las historias que el capitán cuenta sobre inundaciones, tormentas "
        "y vacas perdidas. ¡Qué señor tan paciente!, dice la gente del pueblo.\n"
    ),
    "de": (
        "Die Fähre über den Fluss fährt im April wieder, wenn das Eis geschmolzen und das Wasser "
        "ruhig ist. Jeden Morgen um sieben läutet der alte Kapitän eine kleine Glocke, und die "
        "Bauern vom anderen Ufer tragen ihre Körbe mit Äpfeln, Käse und Brot zum Marktplatz. "
        "Die Kinder winken von der Brücke über der Schleuse. Am Abend kehrt das Boot fast leer "
        "zurück, und der Kapitän schreibt die Zahl der Fahrgäste in ein grünes Heft, das sein "
        "Großvater vor sechzig Jahren begonnen hat. Im letzten Sommer wollte der Gemeinderat die "
        "Fähre durch eine zweite Brücke ersetzen, aber die Bürger stimmten dagegen: Sie mögen "
        "die langsame Überfahrt, den Geruch von Teer und die Geschichten, die der Kapitän über "
        "Hochwasser, Stürme und verlorene Kühe erzählt. Übrigens gehört die Fähre längst zum "
        "Stadtbild, und niemand möchte sie missen.\n"
    ),
    "sv": (
        "Färjan över älven börjar gå igen i april, när isen har smält och vattnet är lugnt. "
        "Varje morgon klockan sju ringer den gamle kaptenen i en liten klocka, och bönderna från "
        "andra stranden bär sina korgar med äpplen, ost och bröd till torget. En enkel resa "
        "kostar två €. Barnen vinkar från bron ovanför slussen. På kvällen kommer båten tillbaka "
        "nästan tom, och kaptenen skriver antalet passagerare i en grön anteckningsbok som hans "
        "farfar började för sextio år sedan. Förra sommaren ville kommunen ersätta färjan med en "
        "andra bro – men invånarna röstade emot. ”Vi tycker om den långsamma överfarten”, säger "
        "de, ”doften av tjära och kaptenens historier om översvämningar, stormar och "
        "bortsprungna kor…”\n"
    ),
    "cs": (
        "Přívoz přes řeku začíná znovu jezdit v dubnu, když roztaje led a voda je klidná. Každé "
        "ráno v sedm hodin zazvoní starý kapitán na malý zvonek a sedláci z druhého břehu nesou "
        "své koše s jablky, sýrem a chlebem na náměstí. Děti mávají z mostu nad zdymadlem. "
        "Večer se loď vrací skoro prázdná a kapitán zapisuje počet cestujících do zeleného "
        "sešitu, který před šedesáti lety založil jeho dědeček. Loni v létě chtěla městská rada "
        "nahradit přívoz druhým mostem, ale obyvatelé hlasovali proti: mají rádi pomalou "
        "plavbu, vůni dehtu a příběhy, které kapitán vypráví o povodních, bouřích a ztracených "
        "kravách. Ve čtvrtek bývá na druhém břehu trh s koňmi a lidé mají chuť na koláče. Kdo "
        "jednou přeplul řeku s ním, ten už nechce jezdit přes most.\n"
    ),
    "pl": (
        "Prom przez rzekę znowu kursuje od kwietnia, kiedy lód stopnieje, a woda jest spokojna. "
        "Każdego ranka o siódmej stary kapitan dzwoni małym dzwonkiem, a rolnicy z drugiego "
        "brzegu niosą kosze z jabłkami, serem i chlebem na rynek. Dzieci machają z mostu nad "
        "śluzą. Wieczorem łódź wraca prawie pusta, a kapitan zapisuje liczbę pasażerów w "
        "zielonym zeszycie, który jego dziadek zaczął sześćdziesiąt lat temu. Zeszłego lata "
        "rada miasta chciała zastąpić prom drugim mostem, ale mieszkańcy głosowali przeciw: "
        "lubią powolną przeprawę, zapach smoły i opowieści kapitana o powodziach, burzach i "
        "zagubionych krowach. Źródło rzeki leży daleko w górach, gdzie żyją żubry.\n"
    ),
    "hu": (
        "A komp áprilisban indul újra a folyón, amikor a jég elolvadt és a víz nyugodt. Minden "
        "reggel hétkor az öreg kapitány megráz egy kis csengőt, és a túlsó part gazdái almával, "
        "sajttal és kenyérrel teli kosaraikat viszik a piactérre. A gyerekek a zsilip fölötti "
        "hídról integetnek. Este a hajó szinte üresen tér vissza, és a kapitány beírja az "
        "utasok számát egy zöld füzetbe, amelyet még a nagyapja kezdett el hatvan évvel "
        "ezelőtt. Tavaly nyáron a városi tanács egy második híddal akarta felváltani a kompot, "
        "de a lakók ellene szavaztak: szeretik a lassú átkelést, a kátrány szagát és a kapitány "
        "történeteit árvizekről, viharokról és elveszett tehenekről. Ő mindig azt mondja, hogy a "
        "folyó türelmet tanít.\n"
    ),
    "ro": (
        "Bacul care traversează râul pornește din nou în aprilie, când gheața s-a topit și apa "
        "este liniștită. În fiecare dimineață, la ora șapte, bătrânul căpitan sună dintr-un "
        "clopoțel, iar țăranii de pe celălalt mal își duc coșurile cu mere, brânză și pâine "
        "până în piața mare. Copiii fac semne de pe podul de deasupra ecluzei. Seara, barca se "
        "întoarce aproape goală, iar căpitanul notează numărul pasagerilor într-un caiet verde "
        "pe care bunicul său l-a început acum șaizeci de ani. Vara trecută, consiliul local a "
        "vrut să înlocuiască bacul cu un al doilea pod, dar locuitorii au votat împotrivă: le "
        "plac traversarea lentă, mirosul de smoală și poveștile căpitanului despre inundații, "
        "furtuni și vaci rătăcite.\n"
    ),
    "ru": (
        "Паром через реку снова начинает ходить в апреле, когда сойдёт лёд и вода станет "
        "спокойной. Каждое утро в семь часов старый капитан звонит в маленький колокол, и "
        "крестьяне с другого берега несут свои корзины с яблоками, сыром и хлебом на рыночную "
        "площадь. Дети машут руками с моста над шлюзом. Вечером лодка возвращается почти "
        "пустой, и капитан записывает число пассажиров в зелёную тетрадь, которую шестьдесят "
        "лет назад начал его дед. Прошлым летом городской совет хотел заменить паром вторым "
        "мостом, но жители проголосовали против: им нравится медленная переправа, запах дёгтя "
        "и рассказы капитана о наводнениях, бурях и потерянных коровах. Ещё говорят, что без "
        "парома город был бы совсем другим.\n"
    ),
    "bg": (
        "Фериботът през реката тръгва отново през април, когато ледът се стопи и водата е "
        "спокойна. Всяка сутрин в седем часа старият капитан бие малка камбанка, а селяните от "
        "другия бряг носят кошниците си с ябълки, сирене и хляб към пазарния площад. Децата "
        "махат от моста над шлюза. Вечер лодката се връща почти празна и капитанът записва "
        "броя на пътниците в зелена тетрадка, която неговият дядо е започнал преди шейсет "
        "години. Миналото лято общинският съвет искаше да замени ферибота с втори мост, но "
        "хората гласуваха против: харесва им бавното прекосяване, мирисът на катран и "
        "историите на капитана за наводнения, бури и изгубени крави.\n"
    ),
    "el": (
        "Το πορθμείο που διασχίζει το ποτάμι ξεκινά ξανά τον Απρίλιο, όταν λιώσει ο πάγος και "
        "το νερό ηρεμήσει. Κάθε πρωί στις επτά ο γέρος καπετάνιος χτυπά ένα μικρό καμπανάκι, "
        "και οι αγρότες από την άλλη όχθη κουβαλούν τα καλάθια τους με μήλα, τυρί και ψωμί "
        "στην πλατεία της αγοράς. Τα παιδιά χαιρετούν από τη γέφυρα πάνω από το φράγμα. Το "
        "βράδυ η βάρκα επιστρέφει σχεδόν άδεια, και ο καπετάνιος γράφει τον αριθμό των επιβατών "
        "σε ένα πράσινο τετράδιο που άρχισε ο παππούς του πριν από εξήντα χρόνια. Άλλοι ήθελαν "
        "μια δεύτερη γέφυρα, αλλά οι κάτοικοι ψήφισαν κατά: τους αρέσει το αργό πέρασμα, η "
        "μυρωδιά της πίσσας και οι ιστορίες του καπετάνιου για πλημμύρες, καταιγίδες και "
        "χαμένες αγελάδες.\n"
    ),
    "he": (
        "המעבורת שחוצה את הנהר מתחילה לפעול שוב באפריל, כשהקרח נמס והמים שקטים. בכל בוקר "
        "בשבע מצלצל הקברניט הזקן בפעמון קטן, והחקלאים מהגדה השנייה נושאים את הסלים שלהם עם "
        "תפוחים, גבינה ולחם אל כיכר השוק. הילדים מנופפים מהגשר שמעל הסכר. בערב הסירה חוזרת "
        "כמעט ריקה, והקברניט רושם את מספר הנוסעים במחברת ירוקה שסבו התחיל לפני שישים שנה. "
        "בקיץ שעבר רצתה מועצת העיר להחליף את המעבורת בגשר שני, אבל התושבים הצביעו נגד: הם "
        "אוהבים את המעבר האיטי, את ריח הזפת ואת הסיפורים של הקברניט על שיטפונות, סערות "
        "ופרות שאבדו.\n"
    ),
    "ar": (
        "تعود العبّارة التي تعبر النهر إلى العمل في شهر أبريل، عندما يذوب الجليد ويهدأ الماء. "
        "في كل صباح عند الساعة السابعة يقرع القبطان العجوز جرسا صغيرا، ويحمل المزارعون من "
        "الضفة الأخرى سلالهم المليئة بالتفاح والجبن والخبز إلى ساحة السوق. يلوّح الأطفال من "
        "فوق الجسر. في المساء يعود القارب شبه فارغ، ويكتب القبطان عدد الركاب في دفتر أخضر "
        "بدأه جده قبل ستين عاما. في الصيف الماضي أراد مجلس المدينة أن يستبدل العبّارة بجسر "
        "ثان، لكن السكان صوتوا ضد ذلك: فهم يحبون العبور البطيء ورائحة القطران والحكايات التي "
        "يرويها القبطان عن الفيضانات والعواصف والأبقار الضائعة.\n"
    ),
    "tr": (
        "Nehrin üzerinden geçen feribot, buzlar eriyip su sakinleşince nisan ayında yeniden "
        "çalışmaya başlıyor. Her sabah saat yedide yaşlı kaptan küçük bir çanı çalıyor ve karşı "
        "kıyıdaki çiftçiler elma, peynir ve ekmek dolu sepetlerini pazar meydanına taşıyor. "
        "Çocuklar bendin üstündeki köprüden el sallıyor. Akşamları tekne neredeyse boş dönüyor "
        "ve kaptan yolcu sayısını, dedesinin altmış yıl önce başladığı yeşil bir deftere "
        "yazıyor. Geçen yaz belediye meclisi feribotun yerine ikinci bir köprü yapmak istedi, "
        "ama halk buna karşı oy verdi: yavaş geçişi, katran kokusunu ve kaptanın seller, "
        "fırtınalar ve kaybolan inekler hakkında anlattığı hikâyeleri seviyorlar. İnsanlar onu "
        "çok sayıyor.\n"
    ),
    "lt": (
        "Keltas per upę vėl pradeda plaukioti balandį, kai ištirpsta ledas ir vanduo nurimsta. "
        "Kiekvieną rytą septintą valandą senasis kapitonas paskambina mažu varpeliu, o "
        "ūkininkai nuo kito kranto neša savo krepšius su obuoliais, sūriu ir duona į turgaus "
        "aikštę. Vaikai moja nuo tilto virš šliuzo. Vakare valtis grįžta beveik tuščia, ir "
        "kapitonas užrašo keleivių skaičių į žalią sąsiuvinį, kurį prieš šešiasdešimt metų "
        "pradėjo jo senelis. Praėjusią vasarą miesto taryba norėjo pakeisti keltą antru tiltu, "
        "bet gyventojai balsavo prieš: jiems patinka lėtas plaukimas, deguto kvapas ir kapitono "
        "pasakojimai apie potvynius, audras ir pasiklydusias karves. Įdomu, kad čia niekas "
        "neskuba.\n"
    ),
    "eo": (
        "La pramo trans la rivero denove funkcias ekde aprilo, kiam la glacio degelis kaj la "
        "akvo estas trankvila. Ĉiun matenon je la sepa la maljuna kapitano sonorigas malgrandan "
        "sonorilon, kaj la kamparanoj de la alia bordo portas siajn korbojn kun pomoj, fromaĝo "
        "kaj pano al la foirejo. La infanoj svingas la manojn de sur la ponto super la kluzo. "
        "Vespere la boato revenas preskaŭ malplena, kaj la kapitano skribas la nombron de "
        "pasaĝeroj en verdan kajeron, kiun lia avo komencis antaŭ sesdek jaroj. Lastan someron "
        "la urba konsilantaro volis anstataŭigi la pramon per dua ponto, sed la loĝantoj "
        "voĉdonis kontraŭ tio: ili ŝatas la malrapidan transiron, la odoron de gudro kaj la "
        "rakontojn de la kapitano pri inundoj, ŝtormoj kaj perditaj bovinoj. Ĥoro da ĝojaj "
        "voĉoj ĵus ekkantis.\n"
    ),
    "th": (
        "เรือข้ามฟากที่แล่นข้ามแม่น้ำจะเริ่มให้บริการอีกครั้งในเดือนเมษายน "
        "เมื่อน้ำแข็งละลายและน้ำสงบลง ทุกเช้าเวลาเจ็ดโมง กัปตันชราจะสั่นกระดิ่งเล็ก ๆ "
        "และชาวนาจากอีกฝั่งหนึ่งก็จะแบกตะกร้าที่ใส่แอปเปิล เนยแข็ง และขนมปังไปยังลานตลาด "
        "เด็ก ๆ โบกมือจากสะพานเหนือประตูน้ำ ตอนเย็นเรือกลับมาเกือบว่างเปล่า "
        "และกัปตันจะจดจำนวนผู้โดยสารลงในสมุดสีเขียวที่ปู่ของเขาเริ่มเขียนไว้เมื่อหกสิบปีก่อน "
        "ฤดูร้อนที่แล้วสภาเมืองอยากจะสร้างสะพานแห่งที่สองแทนเรือข้ามฟาก "
        "แต่ชาวเมืองลงมติไม่เห็นด้วย เพราะพวกเขาชอบการข้ามแม่น้ำอย่างช้า ๆ กลิ่นของน้ำมันดิน "
        "และเรื่องเล่าของกัปตันเกี่ยวกับน้ำท่วม พายุ และวัวที่หลงทาง\n"
    ),
    "vi": (
        "Chiếc phà qua sông lại bắt đầu chạy vào tháng Tư, khi băng đã tan và nước đã yên. Mỗi "
        "sáng lúc bảy giờ, ông thuyền trưởng già rung một chiếc chuông nhỏ, và những người nông "
        "dân ở bờ bên kia mang giỏ táo, phô mai và bánh mì đến quảng trường chợ. Trẻ con vẫy "
        "tay từ cây cầu phía trên âu thuyền. Buổi tối chiếc phà trở về gần như trống không, và "
        "ông thuyền trưởng ghi số hành khách vào một cuốn sổ màu xanh mà ông nội ông đã bắt "
        "đầu từ sáu mươi năm trước. Mùa hè năm ngoái hội đồng thành phố muốn thay phà bằng một "
        "cây cầu thứ hai, nhưng người dân đã bỏ phiếu phản đối: họ thích chuyến đi chậm rãi, "
        "mùi hắc ín và những câu chuyện của ông thuyền trưởng về lũ lụt, bão tố và những con "
        "bò bị lạc.\n"
    ),
    "ja": (
        "川を渡る渡し船は、氷が溶けて水が穏やかになる四月に再び動き始めます。毎朝七時になると、"
        "年老いた船長が小さな鐘を鳴らし、向こう岸の農家の人たちがりんごやチーズ、パンの入った"
        "かごを市場の広場まで運びます。子どもたちは水門の上の橋から手を振ります。夕方になると"
        "船はほとんど空のまま戻り、船長は祖父が六十年前に書き始めた緑色のノートに乗客の数を"
        "書き込みます。去年の夏、町の議会は渡し船をやめて二本目の橋を架けようとしましたが、"
        "住民は反対票を投じました。ゆっくりとした川の旅、タールの匂い、そして洪水や嵐や迷子の"
        "牛について船長が語る話が好きだからです。今年もまた、桜の咲く頃に最初の船が出ます。\n"
    ),
    "zh": (
        "横渡河流的渡船在四月重新开始运行，那时冰已融化，河水也平静下来。每天早上七点，年老的"
        "船长敲响一个小铃，对岸的农民们便提着装满苹果、奶酪和面包的篮子来到集市广场。孩子们在"
        "水闸上方的桥上挥手。傍晚时分，船几乎空着回来，船长把乘客的人数写进一本绿色的笔记本，"
        "那是他祖父六十年前开始写的。去年夏天，市议会想用第二座桥来代替渡船，但居民们投了反对"
        "票：他们喜欢慢慢地过河，喜欢柏油的气味，也喜欢船长讲述的关于洪水、风暴和走失的奶牛的"
        "故事。\n"
    ),
    "zh-hant": (
        "橫渡河流的渡船在四月重新開始運行，那時冰已融化，河水也平靜下來。每天早上七點，年老的"
        "船長敲響一個小鈴，對岸的農民們便提著裝滿蘋果、乳酪和麵包的籃子來到市集廣場。孩子們在"
        "水閘上方的橋上揮手。傍晚時分，船幾乎空著回來，船長把乘客的人數寫進一本綠色的筆記本，"
        "那是他祖父六十年前開始寫的。去年夏天，市議會想用第二座橋來代替渡船，但居民們投了反對"
        "票：他們喜歡慢慢地過河，喜歡柏油的氣味，也喜歡船長講述的關於洪水、風暴和走失的乳牛的"
        "故事。\n"
    ),
    "ko": (
        "강을 건너는 나룻배는 얼음이 녹고 물이 잔잔해지는 사월에 다시 운행을 시작합니다. 매일 "
        "아침 일곱 시가 되면 나이 든 선장이 작은 종을 울리고, 건너편 기슭의 농부들은 사과와 "
        "치즈와 빵이 담긴 바구니를 들고 시장 광장으로 갑니다. 아이들은 수문 위의 다리에서 손을 "
        "흔듭니다. 저녁이 되면 배는 거의 빈 채로 돌아오고, 선장은 할아버지가 육십 년 전에 쓰기 "
        "시작한 초록색 공책에 승객의 수를 적습니다. 지난여름 시의회는 나룻배 대신 두 번째 "
        "다리를 놓으려고 했지만, 주민들은 반대표를 던졌습니다. 그들은 느린 뱃길과 타르 냄새, "
        "그리고 홍수와 폭풍과 길 잃은 소에 대한 선장의 이야기를 좋아하기 때문입니다.\n"
    ),
}

# Syllables outside KS X 1001, which only the unified Hangul code (UHC) reaches.
TEXTS["ko-uhc"] = TEXTS["ko"] + "선장의 개 이름은 똠이고, 고양이 이름은 햏입니다.\n"


def windows_1258_form(text):
    # Windows-1258 has the Vietnamese base letters (â, ơ, ư...) but writes tones as combining marks.
    clusters = []
    for char in unicodedata.normalize("NFD", text):
        if clusters and unicodedata.combining(char):
            clusters[-1].append(char)
        else:
            clusters.append([char])
    out = []
    for base, *marks in clusters:
        for mark in marks:
            joined = unicodedata.normalize("NFC", base + mark)
            if len(joined) == 1 and _encodable(joined, "cp1258"):
                base = joined
                marks.remove(mark)
                break
        out.append(base + "".join(marks))
    return "".join(out)


def _encodable(text, codec):
    try:
        text.encode(codec)
        return True
    except UnicodeEncodeError:
        return False


TEXTS["vi"] = windows_1258_form(TEXTS["vi"])

# (file, text, Python codec or "iconv:NAME", byte-order mark, names that decode it,
#  names that do not, detection finds the text)
# Names known not to decode: the Mac name rules know only "ce" and "centraleur"; "uhc", "tis-620"
# and UTF-32 have no name rule, nor have IANA's "l1", "cs..." and dated aliases; a UTF-16 name
# means host order; every ISO-2022 name is ISO-2022-JP.
ROWS = [
    ("en/ascii.txt", "en", "ascii", "", ["us-ascii", "ascii"], [], True),
    ("en/utf-8.txt", "en", "utf-8", "", ["utf-8"], [], True),
    ("fr/utf-8.txt", "fr", "utf-8", "", ["utf-8", "UTF8", "unicode-1-1-utf-8"], [], True),
    ("fr/utf-8-bom.txt", "fr", "utf-8", "\ufeff", ["utf-8"], [], True),
    ("fr/iso-8859-15.txt", "fr", "iso8859_15", "", ["ISO-8859-15", "latin9", "iso_8859-15"], [],
     False),  # uchardet answers ISO-8859-1: the euro sign and the ligature come out wrong
    ("fr/windows-1252.txt", "fr", "cp1252", "", ["windows-1252", "cp1252", "x-cp1252"], [], True),
    ("fr/utf-16le-bom.txt", "fr", "utf-16-le", "\ufeff", ["utf-16", "UTF-16LE"], [], True),
    ("fr/utf-32le-bom.txt", "fr", "utf-32-le", "\ufeff", [], ["utf-32", "UTF-32LE"], True),
    ("es/iso-8859-1.txt", "es", "latin-1", "", ["ISO-8859-1", "latin1"],
     ["l1", "ISO_8859-1:1987"], True),
    ("es/utf-8.txt", "es", "utf-8", "", ["utf-8"], [], True),
    ("es/utf-16le.txt", "es", "utf-16-le", "", ["utf-16le"], [], True),
    ("de/iso-8859-1.txt", "de", "latin-1", "", ["iso-8859-1", "8859-1"], [], True),
    ("de/utf-8.txt", "de", "utf-8", "", ["utf-8"], [], True),
    ("de/utf-16be-bom.txt", "de", "utf-16-be", "\ufeff", ["utf-16", "UTF-16BE"], [], True),
    ("sv/windows-1252.txt", "sv", "cp1252", "", ["windows-1252", "cp1252"], ["iso-8859-1"], True),
    ("sv/utf-8.txt", "sv", "utf-8", "", ["utf-8"], [], True),
    ("sv/utf-16be.txt", "sv", "utf-16-be", "", [], ["utf-16be"], True),
    ("cs/utf-8.txt", "cs", "utf-8", "", ["utf-8"], [], True),
    ("cs/windows-1250.txt", "cs", "cp1250", "", ["windows-1250", "cp1250"], [], True),
    ("cs/iso-8859-2.txt", "cs", "iso8859_2", "", ["iso-8859-2", "latin2", "ISO_8859-2"], [], True),
    ("cs/ibm852.txt", "cs", "cp852", "", ["ibm852", "cp852"], [], True),
    ("cs/mac-centraleurope.txt", "cs", "mac_latin2", "", ["x-mac-ce", "x-mac-centraleur"],
     ["mac-centraleurope"], True),
    ("pl/iso-8859-2.txt", "pl", "iso8859_2", "", ["iso-8859-2"], [], True),
    ("pl/windows-1250.txt", "pl", "cp1250", "", ["windows-1250"], [], True),
    ("hu/iso-8859-2.txt", "hu", "iso8859_2", "", ["iso-8859-2"], [], True),
    ("hu/windows-1250.txt", "hu", "cp1250", "", ["windows-1250"], [], True),
    ("ro/iso-8859-16.txt", "ro", "iso8859_16", "", ["iso-8859-16", "latin10"], [], True),
    ("ro/utf-8.txt", "ro", "utf-8", "", ["utf-8"], [], True),
    ("ru/utf-8.txt", "ru", "utf-8", "", ["utf-8"], [], True),
    ("ru/windows-1251.txt", "ru", "cp1251", "", ["windows-1251", "cp1251"], [], True),
    ("ru/koi8-r.txt", "ru", "koi8_r", "", ["koi8-r", "KOI8R"], ["csKOI8R"], True),
    ("ru/iso-8859-5.txt", "ru", "iso8859_5", "", ["iso-8859-5"], ["ISO_8859-5:1988"], True),
    ("ru/ibm866.txt", "ru", "cp866", "", ["ibm866", "cp866"], [], True),
    ("ru/ibm855.txt", "ru", "cp855", "", ["ibm855"], [], True),
    ("ru/mac-cyrillic.txt", "ru", "mac_cyrillic", "", ["x-mac-cyrillic", "maccyrillic"], [], True),
    ("bg/windows-1251.txt", "bg", "cp1251", "", ["windows-1251"], [], True),
    ("bg/utf-8.txt", "bg", "utf-8", "", ["utf-8"], [], True),
    ("el/utf-8.txt", "el", "utf-8", "", ["utf-8"], [], True),
    ("el/iso-8859-7.txt", "el", "iso8859_7", "", ["iso-8859-7"], [], True),
    ("el/windows-1253.txt", "el", "cp1253", "", ["windows-1253"], ["iso-8859-7"], True),
    ("he/utf-8.txt", "he", "utf-8", "", ["utf-8"], [], True),
    ("he/iso-8859-8.txt", "he", "iso8859_8", "", ["iso-8859-8", "iso-8859-8-i", "visual"], [],
     True),
    ("he/windows-1255.txt", "he", "cp1255", "", ["windows-1255"], [], True),
    ("ar/utf-8.txt", "ar", "utf-8", "", ["utf-8"], [], True),
    ("ar/windows-1256.txt", "ar", "cp1256", "", ["windows-1256"], [], True),
    ("ar/iso-8859-6.txt", "ar", "iso8859_6", "", ["iso-8859-6"], [], True),
    ("tr/utf-8.txt", "tr", "utf-8", "", ["utf-8"], [], True),
    ("tr/iso-8859-9.txt", "tr", "iso8859_9", "", ["iso-8859-9", "latin5"], [], True),
    ("tr/windows-1254.txt", "tr", "cp1254", "", ["windows-1254"], [], True),
    ("lt/iso-8859-13.txt", "lt", "iso8859_13", "", ["iso-8859-13", "latin7"], [], True),
    ("lt/windows-1257.txt", "lt", "cp1257", "", ["windows-1257"], [], True),
    ("lt/iso-8859-4.txt", "lt", "iso8859_4", "", ["iso-8859-4", "latin4"], [], True),
    ("eo/iso-8859-3.txt", "eo", "iso8859_3", "", ["iso-8859-3", "latin3"], [], True),
    ("th/utf-8.txt", "th", "utf-8", "", ["utf-8"], [], True),
    ("th/tis-620.txt", "th", "tis_620", "", ["iso-8859-11", "windows-874"], ["tis-620"], True),
    ("vi/utf-8.txt", "vi", "utf-8", "", ["utf-8"], [], True),
    ("vi/windows-1258.txt", "vi", "cp1258", "", ["windows-1258"], [], True),
    ("ja/utf-8.txt", "ja", "utf-8", "", ["utf-8"], [], True),
    ("ja/shift_jis.txt", "ja", "shift_jis", "", ["Shift_JIS", "x-sjis", "shift-jis", "sjis"], [],
     True),
    ("ja/euc-jp.txt", "ja", "euc_jp", "", ["EUC-JP", "x-euc-jp"], [], True),
    ("ja/iso-2022-jp.txt", "ja", "iso2022_jp", "", ["ISO-2022-JP", "csISO2022JP"], [], True),
    ("zh/utf-8.txt", "zh", "utf-8", "", ["utf-8"], [], True),
    ("zh/gb18030.txt", "zh", "gb18030", "", ["GB18030", "gbk", "GB2312"], ["x-gbk"], True),
    ("zh-hant/utf-8.txt", "zh-hant", "utf-8", "", ["utf-8"], [], True),
    ("zh-hant/big5.txt", "zh-hant", "big5", "", ["Big5", "x-x-big5", "big5-hkscs"], [], True),
    ("zh-hant/euc-tw.txt", "zh-hant", "iconv:EUC-TW", "", ["EUC-TW", "x-euc-tw"], [], True),
    ("ko/utf-8.txt", "ko", "utf-8", "", ["utf-8"], [], True),
    ("ko/euc-kr.txt", "ko", "euc_kr", "", ["EUC-KR", "ks_c_5601-1987", "cp949"], [], True),
    ("ko/iso-2022-kr.txt", "ko", "iso2022_kr", "", [], ["ISO-2022-KR"], True),
    ("ko/uhc.txt", "ko-uhc", "cp949", "", ["cp949", "euc-kr", "windows-949"], ["uhc"], True),
    ("ko/utf-8-uhc.txt", "ko-uhc", "utf-8", "", ["utf-8"], [], True),
]


def encode(text, codec):
    if codec.startswith("iconv:"):
        # Python has no EUC-TW codec; glibc's iconv, in every Debian system, does.
        return subprocess.run(["iconv", "-f", "UTF-8", "-t", codec[6:]], input=text.encode(),
                              stdout=subprocess.PIPE, check=True).stdout
    return text.encode(codec)


def write(relative, data):
    path = os.path.join(HERE, relative)
    os.makedirs(os.path.dirname(path), exist_ok=True)
    with open(path, "wb") as out:
        out.write(data)


# Where each text is kept as UTF-8: the truth for every file made from it.
def text_file(key):
    return "ko/utf-8-uhc.txt" if key == "ko-uhc" else key + "/utf-8.txt"


def main():
    for key, text in TEXTS.items():
        write(text_file(key), text.encode("utf-8"))
    lines = ["# file\ttext in UTF-8\tnames that decode it\tnames that do not\tdetected\n"]
    for name, key, codec, mark, good, bad, detected in ROWS:
        data = encode(mark + TEXTS[key], codec)
        if name != text_file(key):
            write(name, data)
        lines.append("\t".join([name, text_file(key), " ".join(good), " ".join(bad),
                                "yes" if detected else "no"]) + "\n")
    write("manifest.tsv", "".join(lines).encode("utf-8"))


if __name__ == "__main__":
    main()
